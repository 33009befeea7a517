#pragma once

#include <QTextEdit>

namespace ZVPlatform {

/// Shows text that may come from anywhere: plain, and at once however it is made. It would like to
/// be as high as its text, up to the height of a usual window.
class PlainTextView final : public QTextEdit
{
    Q_OBJECT

public:
    explicit PlainTextView(QWidget *parent);

    /// Puts a text into a field. What is read from it or copied is the text itself; where it has
    /// words without end, all of its lines are broken wherever they are full.
    static void setText(QTextEdit *field, const QString &text);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    QMimeData *createMimeDataFromSelection() const override;
};

} // namespace ZVPlatform
