#include "Faults.h"

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

Result<void> Faults::add(const QString &text)
{
    const QString name = text.section(u'=', 0, 0);
    const QString byte = text.section(u'=', 1);
    if (text == u"wrong-digest"_s) {
        hasWrongDigest = true;
        return {};
    }
    if (name == u"wrong-digest"_s)
        return Failure{
            u"\"%1\" is not understood; it is written without a value: %2"_s.arg(text, name)};
    if (name != u"cut"_s && name != u"stall"_s)
        return Failure{
            u"\"%1\" is not a fault; the faults are cut, stall, wrong-digest"_s.arg(name)};
    if (interruption)
        return Failure{u"\"%1\" is one too many; give either cut or stall, and once"_s.arg(text)};
    interruption = {name == u"stall"_s};
    if (text == name)
        return {};
    bool isNumber = false;
    interruption->byte = byte.toLongLong(&isNumber);
    if (!isNumber || !byte.front().isDigit())
        return Failure{u"\"%1\" is not understood; give a number of bytes, such as "
                       "%2=1000000"_s.arg(text, name)};
    return {};
}
