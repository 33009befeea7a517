#include "HttpReply.h"

#include "../KnownErrors.h"

namespace ZVPlatform {

namespace {

constexpr qsizetype largestBody = 2 * 1024 * 1024; // bytes

} // namespace

Result<void, Error> sendSynchronously(HttpExchange &exchange, HttpReply &reply)
{
    class Memory : public HttpReceiver
    {
    public:
        explicit Memory(HttpReply &into) : reply(into) {}

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

        HttpReply &reply;
        Result<void, Error> result;
    };

    Memory memory(reply);
    exchange.run(memory);
    return memory.result;
}

} // namespace ZVPlatform
