#include "HttpHandle.h"

#include "../Mutex.h"

#include <utility>
#include <vector>

#include <poll.h>

namespace ZVPlatform {

namespace {

constexpr size_t mostIdleHandles = 4;

struct Pool
{
    Mutex mutex;
    std::vector<std::unique_ptr<HttpHandle>> idle ZVUPDATE_GUARDED_BY(mutex);
};

Pool &pool()
{
    static Pool &instance = *new Pool;
    return instance;
}

void initialiseCurl()
{
    // Counted by curl, so this neither disturbs a host that uses curl itself nor depends on one.
    static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
    static_cast<void>(result);
}

} // namespace

HttpHandle::HttpHandle()
{
    initialiseCurl();
    easy = curl_easy_init();
    multi = curl_multi_init();
    curl_multi_setopt(multi, CURLMOPT_MAXCONNECTS, 1L); // The one that is looked at.
}

HttpHandle::~HttpHandle()
{
    curl_easy_cleanup(easy);
    curl_multi_cleanup(multi);
}

void HttpHandle::noteConnection(bool isKept)
{
    kept_ = CURL_SOCKET_BAD;
    if (isKept)
        curl_easy_getinfo(easy, CURLINFO_ACTIVESOCKET, &kept_);
}

bool HttpHandle::hasUnaskedInput() const
{
    pollfd connection = {kept_, POLLIN, 0}; // Without one there is nothing to see.
    return ::poll(&connection, 1, 0) > 0;
}

std::unique_ptr<HttpHandle> HttpHandlePool::take()
{
    {
        const MutexLock lock(pool().mutex);
        while (!pool().idle.empty()) {
            auto handle = std::move(pool().idle.back());
            pool().idle.pop_back();
            if (!handle->hasUnaskedInput())
                return handle;
        }
    }
    return std::make_unique<HttpHandle>();
}

void HttpHandlePool::giveBack(std::unique_ptr<HttpHandle> handle)
{
    curl_easy_reset(handle->easy);
    const MutexLock lock(pool().mutex);
    if (pool().idle.size() < mostIdleHandles)
        pool().idle.push_back(std::move(handle));
}

} // namespace ZVPlatform
