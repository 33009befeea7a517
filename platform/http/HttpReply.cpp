#include "HttpReply.h"

#include <utility>

namespace ZVPlatform {

namespace {

constexpr qsizetype largestBody = 2 * 1024 * 1024; // bytes

} // namespace

HttpReply sendSynchronously(const HttpRequest &request)
{
    class Memory : public HttpReceiver
    {
    public:
        void didReceiveResponse(const HttpResponse &) override {}

        bool didReceiveData(const QByteArray &bytes) override
        {
            if (body.size() + bytes.size() > largestBody)
                return false;
            body += bytes;
            return true;
        }

        QByteArray body;
    };

    Memory memory;
    HttpExchange exchange(request);
    HttpReply reply;
    reply.error = exchange.run(memory);
    reply.response = exchange.response();
    reply.body = std::move(memory.body);
    return reply;
}

} // namespace ZVPlatform
