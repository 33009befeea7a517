#include "ReplacedClients.h"

#include "../platform/Mutex.h"
#include "../platform/threads/ApplicationEnd.h"
#include "../service/UpdateLogicFunc.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

using namespace ZVPlatform;

namespace {

using Clients = std::vector<std::shared_ptr<UpdateLogicFunc>>;

struct Replaced
{
    Mutex mutex;
    Clients clients ZVUPDATE_GUARDED_BY(mutex);
};

Replaced &replaced()
{
    static Replaced &instance = *new Replaced;
    return instance;
}

// Destroying a client stops its download and waits; so it is not done under the lock.
void stopAll()
{
    Clients stopped;
    Replaced &kept = replaced();
    const MutexLock lock(kept.mutex);
    stopped.swap(kept.clients);
}

} // namespace

void ReplacedClients::keep(std::shared_ptr<UpdateLogicFunc> client)
{
    Clients ended;
    Replaced &kept = replaced();
    const MutexLock lock(kept.mutex);
    if (client && !client->doCheckDownloadStop()) {
        if (kept.clients.empty())
            whenApplicationEnds(stopAll);
        kept.clients.push_back(std::move(client));
    }
    const auto firstEnded =
        std::partition(kept.clients.begin(), kept.clients.end(),
                       [](const auto &one) { return !one->doCheckDownloadStop(); });
    std::move(firstEnded, kept.clients.end(), std::back_inserter(ended));
    kept.clients.erase(firstEnded, kept.clients.end());
}
