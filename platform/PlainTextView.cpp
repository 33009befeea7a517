#include "PlainTextView.h"

#include <QFontMetrics>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextDocumentFragment>

#include <algorithm>
#include <cmath>

namespace ZVPlatform {

namespace {

constexpr int padding = 12;
constexpr QSize usualSize(500, 420);
constexpr int fewestLines = 2;

// For each line, the layout looks through the rest of a word for its end, which takes a time that
// grows with the square of the word's length.
constexpr qsizetype longestWord = 500;

// The marks on one letter are placed in a time that grows with the square of their number, unless
// the text falls into runs of different formats.
constexpr qsizetype longestRunOfMarks = 64;

bool hasOverlongWord(const QString &text)
{
    qsizetype length = 0;
    return std::any_of(text.cbegin(), text.cend(), [&length](QChar character) {
        length = character.isSpace() ? 0 : length + 1;
        return length > longestWord;
    });
}

// Cuts runs of marks by a format that differs in nothing that is seen.
void divideMarks(QTextDocument *document, const QString &text)
{
    QTextCursor cursor(document);
    cursor.beginEditBlock();
    qsizetype marks = 0;
    for (qsizetype position = 0; position < text.size(); ++position) {
        marks = text.at(position).isMark() ? marks + 1 : 0;
        if (marks == 0 || marks % (2 * longestRunOfMarks) != 0)
            continue;
        QTextCharFormat other;
        other.setProperty(QTextFormat::UserProperty, true);
        cursor.setPosition(static_cast<int>(position + 1 - longestRunOfMarks));
        cursor.setPosition(static_cast<int>(position + 1), QTextCursor::KeepAnchor);
        cursor.setCharFormat(other);
    }
    cursor.endEditBlock();
}

} // namespace

PlainTextView::PlainTextView(QWidget *parent) : QTextEdit(parent)
{
    setAcceptRichText(false);
    setUndoRedoEnabled(false);
    document()->setDocumentMargin(padding);
}

void PlainTextView::setText(QTextEdit *field, const QString &text)
{
    QString plain = text;
    // Reads the same from a text field, which takes its time over them in one paragraph.
    plain.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    plain.replace(QChar(QChar::LineSeparator), QLatin1Char('\n'));
    if (field->toPlainText() == plain)
        return;
    field->setWordWrapMode(hasOverlongWord(plain) ? QTextOption::WrapAnywhere
                                                  : QTextOption::WrapAtWordBoundaryOrAnywhere);
    field->setPlainText(plain);
    divideMarks(field->document(), plain);
    field->updateGeometry();
}

QSize PlainTextView::sizeHint() const
{
    constexpr int enough = 4000; // characters fill the usual height
    QTextCursor beginning(document());
    beginning.setPosition(std::min(enough, document()->characterCount() - 1),
                          QTextCursor::KeepAnchor);
    QTextDocument sample;
    sample.setDefaultFont(font());
    sample.setDocumentMargin(padding);
    sample.setDefaultTextOption(document()->defaultTextOption());
    sample.setPlainText(beginning.selection().toPlainText());
    const int frame = 2 * frameWidth();
    sample.setTextWidth(usualSize.width() - frame);
    const int height = static_cast<int>(std::ceil(sample.size().height())) + frame;
    return {usualSize.width(), std::min(height, usualSize.height())};
}

QSize PlainTextView::minimumSizeHint() const
{
    const int around = 2 * (padding + frameWidth());
    const int lines = std::min(fewestLines, document()->blockCount());
    return QSize(around, around + lines * QFontMetrics(font()).lineSpacing());
}

} // namespace ZVPlatform
