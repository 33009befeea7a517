#pragma once

#include <QLabel>

/// A text field that centres its text vertically, and draws it in white while it is highlighted on
/// a dark background. Its text is always plain; it is wrapped at the field's width, and where the
/// height does not suffice it is shortened, and is the field's tool tip as a whole: first the part
/// that may shrink gives up its middle, then the last visible line ends in an ellipsis.
///
/// Only the window's layout makes such fields.
class VerticalCenterTextField : public QLabel
{
    Q_OBJECT
    Q_PROPERTY(bool highlighted READ isHighlighted WRITE setHighlighted)
    Q_PROPERTY(BackgroundStyle backgroundStyle READ backgroundStyle WRITE setBackgroundStyle)

public:
    enum BackgroundStyle { Light = 0, Dark = 1 };
    Q_ENUM(BackgroundStyle)

    explicit VerticalCenterTextField(QWidget *parent = nullptr);

    /// Draws the text within a frame, both in the painter's units; draws nothing else.
    virtual void drawInteriorWithFrame(QPainter *painter, const QRectF &frame) const;

    /// Where the text goes within the given bounds: as high as the text and in the middle of the
    /// bounds, or, for a text that is too high, the label's own rectangle. Nothing is rounded.
    virtual QRectF titleRectForBounds(const QRectF &bounds) const;

    bool isHighlighted() const { return highlighted_; }
    void setHighlighted(bool highlighted);
    BackgroundStyle backgroundStyle() const { return backgroundStyle_; }
    void setBackgroundStyle(BackgroundStyle style);

    /// The part of the text, such as a name in a sentence, that is the first to be shortened.
    void setShrinkingPart(const QString &part);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    int heightForWidth(int width) const override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QRectF labelRectForBounds(const QRectF &bounds) const;
    QSize marginsAround() const;
    qreal textHeight(qreal width) const;
    QString textWithin(const QSizeF &size) const;
    void drawText(QPainter *painter, const QRectF &rect) const;

    QString shrinkingPart_;
    bool highlighted_ = false;
    BackgroundStyle backgroundStyle_ = Light;
};
