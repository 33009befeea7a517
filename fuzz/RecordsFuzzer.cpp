#include "service/BaseResponse.h"
#include "service/CheckUpdateResponse.h"
#include "service/HttpFunctionURLEncode.h"

#include <cstdlib>

namespace {

void read(const QString &reply)
{
    const BaseResponse base(reply);
    const auto check = CheckUpdateResponse::getFromJson(reply);
    if (!check || check->ok() != base.ok() || check->msg() != base.msg())
        std::abort();
    for (const char *language : {"en", "zh-TW", "zh-CN", ""})
        check->getUpdateMessageWithLang(QString::fromLatin1(language));
    if (base.debugDescription().isEmpty() || check->debugDescription().isEmpty())
        std::abort();
}

} // namespace

/// Replies of the service: any text, and any text sealed within a reply that says ok.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString text =
        QString::fromUtf8(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    read(text);
    read(QStringLiteral("{\"ok\":true,\"data\":\"%1\"}").arg(HttpFunctionURLEncode::encode(text)));
    return 0;
}
