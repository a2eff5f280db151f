#include "host/InProcessManager.h"

#include "host/Forever.h"
#include "host/Misuse.h"
#include "host/PlatformCall.h"
#include "host/ReclaimAtCall.h"

namespace kvo::host {

namespace {

InProcessManager& manager() { return forever<InProcessManager>(); }

OnReset const gOnReset([] {
    manager().setCores(settings().pool);
    manager().force({});
});

[[maybe_unused]] bool const gIsRegistered = [] {
    setReclaimer([] { manager().reclaimFromHolder(); });
    setPortRegister([](int port) { return manager().isPortHeld(port); });
    return true;
}();

}  // namespace

ResourceManager& resourceManager() { return manager(); }

void setPool(std::vector<CodecCore> const& cores) { manager().setCores(cores); }

void forceGrant(ForcedGrant grant) { manager().force(grant); }

std::vector<CrmClient> crmClients() { return manager().clients(); }

std::string describe() { return manager().describePool(); }

std::future<int> reclaim(int uniqueId) {
    return std::async(std::launch::async, [uniqueId] { return manager().reclaim(uniqueId); });
}

}  // namespace kvo::host
