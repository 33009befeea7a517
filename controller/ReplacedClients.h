#pragma once

#include <memory>

class UpdateLogicFunc;

/// Service clients that a newer check has replaced while their download was running: they live on
/// until it has ended, whatever becomes of their controller. Those still running at the end of the
/// application are stopped.
class ReplacedClients
{
public:
    /// Takes a replaced client over, unless its download has ended. Any thread.
    static void keep(std::shared_ptr<UpdateLogicFunc> client);
};
