#include "JsonLocator.h"

JsonLocator::Position JsonLocator::positionOf(const JsonPath &path)
{
    offset_ = json_.startsWith("\xEF\xBB\xBF") ? 3 : 0;
    skipSpace();
    for (const QString &step : path) {
        const qsizetype container = offset_;
        const bool found = current() == '{' ? enterMember(step) : enterElement(step.toLongLong());
        if (!found)
            return positionAt(container);
    }
    return positionAt(offset_);
}

JsonLocator::Position JsonLocator::positionAt(qsizetype offset) const
{
    const QByteArray before = json_.left(offset);
    const QByteArray line = before.mid(before.lastIndexOf('\n') + 1);
    return {before.count('\n') + 1, QString::fromUtf8(line).size() + 1};
}

void JsonLocator::skipSpace()
{
    while (current() == ' ' || current() == '\t' || current() == '\n' || current() == '\r')
        ++offset_;
}

void JsonLocator::skipString()
{
    for (++offset_; offset_ < json_.size() && current() != '"'; ++offset_) {
        if (current() == '\\')
            ++offset_;
    }
    ++offset_;
}

void JsonLocator::skipValue()
{
    int depth = 0;
    while (offset_ < json_.size()) {
        const char c = current();
        if (depth == 0 && (c == ',' || c == '}' || c == ']'))
            return;
        if (c == '"') {
            skipString();
            continue;
        }
        if (c == '{' || c == '[')
            ++depth;
        if (c == '}' || c == ']')
            --depth;
        ++offset_;
    }
}

bool JsonLocator::enterMember(const QString &name)
{
    do {
        ++offset_; // past the brace or the comma
        skipSpace();
        const qsizetype start = offset_ + 1;
        skipString();
        const QByteArray key = json_.mid(start, offset_ - 1 - start);
        skipSpace();
        ++offset_; // past the colon
        skipSpace();
        if (key == name.toUtf8())
            return true;
        skipValue();
    } while (current() == ',');
    return false;
}

bool JsonLocator::enterElement(qsizetype index)
{
    if (current() != '[')
        return false;
    for (qsizetype i = 0;; ++i) {
        ++offset_; // past the bracket or the comma
        skipSpace();
        if (i == index)
            return true;
        skipValue();
        if (current() != ',')
            return false;
    }
}
