#include "VerticalCenterTextField.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QStyle>
#include <QTextLayout>

#include <cmath>

namespace {

constexpr int widestHint = 60;   // average characters
constexpr int narrowestHint = 8; // the same
constexpr int highestHint = 4;   // lines

// The text of one field, broken into lines of a width, or of the width that each line wants.
class Lines
{
public:
    Lines(const QString &text, const QLabel &label, qreal width)
        : layout_(QString(text).replace(QLatin1Char('\n'), QChar(QChar::LineSeparator)),
                  label.font(), &label)
    {
        QTextOption option(QStyle::visualAlignment(label.layoutDirection(), label.alignment()));
        option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
        option.setTextDirection(Qt::LayoutDirectionAuto);
        layout_.setTextOption(option);
        layout_.beginLayout();
        for (QTextLine line = layout_.createLine(); line.isValid(); line = layout_.createLine()) {
            line.setLineWidth(width);
            line.setPosition({0, height_});
            height_ += line.height();
        }
        layout_.endLayout();
    }

    qreal height() const { return height_; }
    qreal naturalWidth() const { return layout_.maximumWidth(); }
    int count() const { return layout_.lineCount(); }
    QTextLine at(int index) const { return layout_.lineAt(index); }

    // How many lines a height holds; the first is shown in any case.
    int visibleIn(qreal height) const
    {
        int visible = 1;
        while (visible < count() && at(visible).y() + at(visible).height() <= height)
            ++visible;
        return visible;
    }

    // What a line shows when it stands for everything from there on.
    QString elidedFrom(const QTextLine &line, qreal width) const
    {
        QString rest = layout_.text().mid(line.textStart());
        const qsizetype end = rest.indexOf(QChar(QChar::LineSeparator));
        if (end >= 0)
            rest = rest.left(end) + QChar(0x2026);
        return QFontMetricsF(layout_.font()).elidedText(rest, Qt::ElideRight, width);
    }

private:
    QTextLayout layout_;
    qreal height_ = 0;
};

} // namespace

VerticalCenterTextField::VerticalCenterTextField(QWidget *parent) : QLabel(parent)
{
    setTextFormat(Qt::PlainText);
    setWordWrap(true);
}

void VerticalCenterTextField::drawInteriorWithFrame(QPainter *painter, const QRectF &frame) const
{
    const bool isWhite = highlighted_ && backgroundStyle_ == Dark;
    painter->save();
    painter->setPen(isWhite ? QColor(Qt::white) : palette().color(foregroundRole()));
    drawText(painter, titleRectForBounds(frame));
    painter->restore();
}

QRectF VerticalCenterTextField::titleRectForBounds(const QRectF &bounds) const
{
    QRectF rect = labelRectForBounds(bounds);
    const qreal height = textHeight(rect.width());
    if (rect.height() > height) {
        // In the middle of the bounds, not of the label's rectangle, whose margins may differ.
        rect.moveTop(bounds.y() + (bounds.height() - height) * 0.5);
        rect.setHeight(height);
    }
    return rect;
}

void VerticalCenterTextField::setHighlighted(bool highlighted)
{
    highlighted_ = highlighted;
    update();
}

void VerticalCenterTextField::setBackgroundStyle(BackgroundStyle style)
{
    backgroundStyle_ = style;
    update();
}

void VerticalCenterTextField::setShrinkingPart(const QString &part)
{
    shrinkingPart_ = part;
    update();
}

QSize VerticalCenterTextField::sizeHint() const
{
    const QSize margins = marginsAround();
    const qreal widest = widestHint * QFontMetricsF(font()).averageCharWidth();
    const qreal wanted = Lines(text(), *this, widest).naturalWidth();
    const int width = static_cast<int>(std::ceil(std::min(wanted, widest))) + margins.width();
    return {width, heightForWidth(width)};
}

QSize VerticalCenterTextField::minimumSizeHint() const
{
    const QFontMetricsF metrics(font());
    const QSize size(static_cast<int>(std::ceil(narrowestHint * metrics.averageCharWidth())),
                     static_cast<int>(std::ceil(metrics.height())));
    return size + marginsAround();
}

int VerticalCenterTextField::heightForWidth(int width) const
{
    const QSize margins = marginsAround();
    const qreal height = std::min(textHeight(width - margins.width()),
                                  highestHint * QFontMetricsF(font()).lineSpacing());
    return static_cast<int>(std::ceil(height)) + margins.height();
}

void VerticalCenterTextField::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    drawFrame(&painter);
    drawInteriorWithFrame(&painter, contentsRect());

    const QSizeF size = titleRectForBounds(contentsRect()).size();
    const bool isWhole = textHeight(size.width()) <= size.height();
    // Which Qt would take for HTML if it looks like that.
    const QString html = QLatin1String("<qt>") + text().toHtmlEscaped() + QLatin1String("</qt>");
    setToolTip(isWhole ? QString() : Qt::mightBeRichText(text()) ? html : text());
}

// Where a label puts its text: within its margin, and indented from the edge to which it is
// aligned.
QRectF VerticalCenterTextField::labelRectForBounds(const QRectF &bounds) const
{
    const qreal inset = margin();
    QRectF rect = bounds.marginsRemoved({inset, inset, inset, inset});
    const qreal indentation = std::max(indent(), 0);
    const Qt::Alignment edges = QStyle::visualAlignment(layoutDirection(), alignment());
    rect.adjust(edges & Qt::AlignLeft ? indentation : 0, edges & Qt::AlignTop ? indentation : 0,
                edges & Qt::AlignRight ? -indentation : 0,
                edges & Qt::AlignBottom ? -indentation : 0);
    return rect;
}

// What frame, margin and indentation take of the field.
QSize VerticalCenterTextField::marginsAround() const
{
    const QRect contents = contentsRect();
    const QSizeF inside = labelRectForBounds(contents).size();
    return size() - inside.toSize();
}

qreal VerticalCenterTextField::textHeight(qreal width) const
{
    return text().isEmpty() ? 0 : Lines(text(), *this, width).height();
}

// As much of the part that may shrink as there is room for.
QString VerticalCenterTextField::textWithin(const QSizeF &size) const
{
    const qsizetype start = shrinkingPart_.isEmpty() ? -1 : text().indexOf(shrinkingPart_);
    if (start < 0 || textHeight(size.width()) <= size.height())
        return text();
    const auto keeping = [this, start](qsizetype kept) {
        const QString part =
            shrinkingPart_.left((kept + 1) / 2) + QChar(0x2026) + shrinkingPart_.right(kept / 2);
        return QString(text()).replace(start, shrinkingPart_.size(), part);
    };
    qsizetype kept = 0;
    for (qsizetype tooMany = shrinkingPart_.size(); tooMany - kept > 1;) {
        const qsizetype middle = (kept + tooMany) / 2;
        const bool fits = Lines(keeping(middle), *this, size.width()).height() <= size.height();
        (fits ? kept : tooMany) = middle;
    }
    return keeping(kept);
}

void VerticalCenterTextField::drawText(QPainter *painter, const QRectF &rect) const
{
    if (text().isEmpty())
        return;
    const Lines lines(textWithin(rect.size()), *this, rect.width());
    const int visible = lines.visibleIn(rect.height());
    for (int index = 0; index < visible; ++index) {
        const QTextLine line = lines.at(index);
        if (index + 1 < visible || visible == lines.count()) {
            line.draw(painter, rect.topLeft());
            continue;
        }
        const QString elided = lines.elidedFrom(line, rect.width());
        const QPointF position = rect.topLeft() + QPointF(0, line.y());
        Lines(elided, *this, rect.width()).at(0).draw(painter, position);
    }
}
