#include "HttpReply.h"

#include "../KnownErrors.h"

#include <utility>

namespace ZVPlatform {

namespace {

constexpr qsizetype largestBody = 2 * 1024 * 1024; // bytes

} // namespace

Result<HttpReply, Error> sendSynchronously(const HttpRequest &request)
{
    class Memory : public HttpReceiver
    {
    public:
        void didReceiveResponse(const HttpResponse &response) override
        {
            reply.response = response;
        }

        Result<void, Error> didReceiveData(const QByteArray &bytes) override
        {
            if (reply.body.size() + bytes.size() > largestBody)
                return Failure{networkError(NetworkError::ReplyTooLarge)};
            reply.body += bytes;
            return {};
        }

        void didFinish(const Result<void, Error> &finished) override { result = finished; }

        HttpReply reply;
        Result<void, Error> result;
    };

    Memory memory;
    HttpExchange(request).run(memory);
    if (!memory.result)
        return Failure{memory.result.error()};
    return std::move(memory.reply);
}

} // namespace ZVPlatform
