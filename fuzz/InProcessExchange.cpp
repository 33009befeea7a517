#include "InProcessExchange.h"

#include "platform/KnownErrors.h"
#include "platform/http/HttpExchange.h"

#include <utility>

using namespace ZVPlatform;

namespace {

std::function<InProcessExchange::Answer(const HttpRequest &)> currentService;

} // namespace

void InProcessExchange::setService(std::function<Answer(const HttpRequest &)> service)
{
    currentService = std::move(service);
}

namespace ZVPlatform {

HttpExchange::HttpExchange(HttpRequest request) : request_(std::move(request)) {}

void HttpExchange::run(HttpReceiver &receiver)
{
    receiver.didFinish(converse(receiver));
}

Result<void, Error> HttpExchange::converse(HttpReceiver &receiver)
{
    const InProcessExchange::Answer answer = currentService(request_);
    if (answer.status == 0)
        return Failure{networkError(NetworkError::Other)};
    receiver.didReceiveResponse({answer.status, answer.announcedLength});
    if (request_.method != HttpMethod::Head) {
        for (const QByteArray &piece : answer.pieces) {
            if (cancelled_)
                return Failure{networkError(NetworkError::Cancelled)};
            if (auto taken = receiver.didReceiveData(piece); !taken)
                return taken;
        }
    }
    return answer.result;
}

void HttpExchange::cancel()
{
    cancelled_ = true;
}

} // namespace ZVPlatform
