#include "ReplacedClients.h"

#include "../service/UpdateLogicFunc.h"

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

void ReplacedClients::keep(std::shared_ptr<UpdateLogicFunc> client)
{
    static std::mutex mutex;
    static std::vector<std::shared_ptr<UpdateLogicFunc>> clients; // Guarded by mutex.

    std::vector<std::shared_ptr<UpdateLogicFunc>> ended; // Destroyed outside the lock.
    const std::lock_guard lock(mutex);
    if (client)
        clients.push_back(std::move(client));
    const auto firstEnded = std::partition(clients.begin(), clients.end(), [](const auto &kept) {
        return !kept->doCheckDownloadStop();
    });
    std::move(firstEnded, clients.end(), std::back_inserter(ended));
    clients.erase(firstEnded, clients.end());
}
