#include "InProcessExchange.h"

#include "platform/http/HttpErrors.h"
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

std::optional<Error> HttpExchange::run(HttpReceiver &receiver)
{
    const InProcessExchange::Answer answer = currentService(request_);
    response_ = {answer.status, answer.announcedLength};
    if (answer.status == 0)
        return networkError(NetworkError::Other);
    receiver.didReceiveResponse(response_);
    if (request_.method == HttpMethod::Head)
        return answer.error;
    for (const QByteArray &piece : answer.pieces) {
        if (cancelled_)
            return networkError(NetworkError::Cancelled);
        if (!receiver.didReceiveData(piece))
            return networkError(NetworkError::ReplyTooLarge);
    }
    return answer.error;
}

void HttpExchange::cancel()
{
    cancelled_ = true;
}

} // namespace ZVPlatform
