#include "PlainTextView.h"

#include <QFontMetrics>
#include <QMimeData>
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

// A paragraph costs much more than a line within one. Nobody reads so many lines, which may then
// share paragraphs.
constexpr qsizetype mostParagraphs = 10000;
constexpr qsizetype sharedParagraph = 1000; // characters, about

// A text of this length is higher than any window, and is not laid out once more to find that out.
constexpr qsizetype surelyScrolls = 100000;

bool endsWord(QChar character)
{
    constexpr char16_t figureSpace = 0x2007;
    constexpr char16_t narrowSpace = 0x202f;
    return character.isSpace() && character != QChar(QChar::Nbsp) &&
           character != QChar(figureSpace) && character != QChar(narrowSpace);
}

bool hasOverlongWord(const QString &text)
{
    qsizetype length = 0;
    return std::any_of(text.cbegin(), text.cend(), [&length](QChar character) {
        length = endsWord(character) ? 0 : length + 1;
        return length > longestWord;
    });
}

// The layout loses count at 2^23 pixels, and is then never done. Until here each character may have
// a line of its own; the lines behind are made so low that they need no more than as much again.
constexpr int readableHeight = 4'000'000; // pixels

void shareParagraphs(QString &text)
{
    qsizetype start = 0;
    for (qsizetype position = 0; position < text.size(); ++position) {
        if (text.at(position) != QLatin1Char('\n'))
            continue;
        if (position - start >= sharedParagraph)
            start = position + 1;
        else
            text[position] = QChar(QChar::LineSeparator);
    }
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

void boundHeight(QTextDocument *document)
{
    const int readable = readableHeight / QFontMetrics(document->defaultFont()).lineSpacing();
    if (document->characterCount() <= readable)
        return;
    QTextCursor cursor(document);
    cursor.setPosition(readable);
    cursor.movePosition(QTextCursor::End, QTextCursor::KeepAnchor);
    QTextCharFormat low;
    low.setProperty(QTextFormat::FontPixelSize, 1);
    cursor.mergeCharFormat(low);
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
    plain.replace(QLatin1Char('\r'), QLatin1Char('\n'));
    plain.replace(QChar(QChar::LineSeparator), QLatin1Char('\n'));
    plain.replace(QChar(QChar::ParagraphSeparator), QLatin1Char('\n'));
    if (field->toPlainText() == plain)
        return;
    field->setWordWrapMode(hasOverlongWord(plain) ? QTextOption::WrapAnywhere
                                                  : QTextOption::WrapAtWordBoundaryOrAnywhere);
    field->setVerticalScrollBarPolicy(plain.size() > surelyScrolls ? Qt::ScrollBarAlwaysOn
                                                                   : Qt::ScrollBarAsNeeded);
    if (plain.count(QLatin1Char('\n')) > mostParagraphs)
        shareParagraphs(plain);
    field->setPlainText(plain);
    divideMarks(field->document(), plain);
    boundHeight(field->document());
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

// The text as it came, at once, rather than one without its special spaces and in several formats.
QMimeData *PlainTextView::createMimeDataFromSelection() const
{
    QString selected = textCursor().selectedText();
    selected.replace(QChar(QChar::ParagraphSeparator), QLatin1Char('\n'));
    selected.replace(QChar(QChar::LineSeparator), QLatin1Char('\n'));
    auto *const mimeData = new QMimeData; // The caller's.
    mimeData->setText(selected);
    return mimeData;
}

QSize PlainTextView::minimumSizeHint() const
{
    const int around = 2 * (padding + frameWidth());
    const int lines = std::min(fewestLines, document()->blockCount());
    return QSize(around, around + lines * QFontMetrics(font()).lineSpacing());
}

} // namespace ZVPlatform
