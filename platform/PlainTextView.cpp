#include "PlainTextView.h"

#include <QFontMetrics>
#include <QMimeData>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextDocumentFragment>
#include <QTimer>

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

// Characters that are put in at once: few enough to be there in a moment, whatever they are.
constexpr qsizetype beginning = 20'000;
constexpr qsizetype piece = 50'000;

// How often a field was given a text.
constexpr char givenTexts[] = "givenTexts";

bool hasOverlongWord(const QString &text)
{
    qsizetype length = 0;
    return std::any_of(text.cbegin(), text.cend(), [&length](QChar character) {
        length = character.isSpace() ? 0 : length + 1;
        return length > longestWord;
    });
}

// Cuts runs of marks by a format that differs in nothing that is seen.
void divideMarks(QTextCursor cursor, const QString &text, qsizetype start, qsizetype end)
{
    qsizetype marks = 0;
    for (qsizetype position = start; position < end; ++position) {
        marks = text.at(position).isMark() ? marks + 1 : 0;
        if (marks == 0 || marks % (2 * longestRunOfMarks) != 0)
            continue;
        QTextCharFormat other;
        other.setProperty(QTextFormat::UserProperty, true);
        cursor.setPosition(static_cast<int>(position + 1 - longestRunOfMarks));
        cursor.setPosition(static_cast<int>(position + 1), QTextCursor::KeepAnchor);
        cursor.setCharFormat(other);
    }
}

// Puts in a text up to a position, and the rest while the event loop runs. What follows the
// beginning comes in whole paragraphs, each of which is laid out once more when it grows.
void fill(QTextEdit *field, const QString &text, qsizetype start, qsizetype end, int given)
{
    if (field->property(givenTexts).toInt() != given)
        return;
    QTextCursor cursor(field->document());
    cursor.beginEditBlock();
    cursor.movePosition(QTextCursor::End);
    cursor.insertText(text.sliced(start, end - start), QTextCharFormat());
    divideMarks(cursor, text, start, end);
    cursor.endEditBlock();
    if (end == text.size())
        return;
    const qsizetype paragraph = text.indexOf(QLatin1Char('\n'), std::min(end + piece, text.size()));
    const qsizetype next = paragraph < 0 ? text.size() : paragraph + 1;
    QTimer::singleShot(0, field, [=] { fill(field, text, end, next, given); });
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
    const int given = field->property(givenTexts).toInt() + 1;
    field->setProperty(givenTexts, given);
    field->clear();
    fill(field, plain, 0, std::min(beginning, plain.size()), given);
    field->updateGeometry();
}

QSize PlainTextView::sizeHint() const
{
    constexpr int enough = 4000; // characters fill the usual height
    QTextCursor start(document());
    start.setPosition(std::min(enough, document()->characterCount() - 1), QTextCursor::KeepAnchor);
    QTextDocument sample;
    sample.setDefaultFont(font());
    sample.setDocumentMargin(padding);
    sample.setDefaultTextOption(document()->defaultTextOption());
    sample.setPlainText(start.selection().toPlainText());
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

// As text alone: there is nothing else in it, and to write it as HTML takes seconds for a long one.
QMimeData *PlainTextView::createMimeDataFromSelection() const
{
    auto *copied = new QMimeData;
    copied->setText(
        textCursor().selectedText().replace(QChar::ParagraphSeparator, QLatin1Char('\n')));
    return copied;
}

} // namespace ZVPlatform
