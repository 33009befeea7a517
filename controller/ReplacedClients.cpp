#include "ReplacedClients.h"

#include "../platform/Mutex.h"
#include "../platform/threads/ApplicationEnd.h"
#include "../service/UpdateLogicFunc.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

namespace {

using Clients = std::vector<std::shared_ptr<UpdateLogicFunc>>;

ZVPlatform::Mutex mutex;
Clients clients ZVUPDATE_GUARDED_BY(mutex);

// Destroying a client stops its download and waits; so it is not done under the lock.
void stopAll()
{
    Clients stopped;
    const ZVPlatform::MutexLock lock(mutex);
    stopped.swap(clients);
}

} // namespace

void ReplacedClients::keep(std::shared_ptr<UpdateLogicFunc> client)
{
    Clients ended;
    const ZVPlatform::MutexLock lock(mutex);
    if (client && !client->doCheckDownloadStop()) {
        if (clients.empty())
            ZVPlatform::whenApplicationEnds(stopAll);
        clients.push_back(std::move(client));
    }
    const auto firstEnded = std::partition(clients.begin(), clients.end(), [](const auto &kept) {
        return !kept->doCheckDownloadStop();
    });
    std::move(firstEnded, clients.end(), std::back_inserter(ended));
    clients.erase(firstEnded, clients.end());
}
