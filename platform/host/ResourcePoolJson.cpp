// The resource pool's state for programs. By itself, since only the service needs the library for
// it.

#include <nlohmann/json.hpp>

#include "host/ResourcePool.h"

namespace kvo::host {

using Json = nlohmann::ordered_json;

std::string ResourcePool::describeAsJson() const {
    auto const secondsSince = [&](Clock::time_point time) {
        return std::chrono::duration<double>(mNow() - time).count();
    };
    auto const whose = [&](int client, Clock::time_point since) {
        auto const known = mClients.find(client);
        if (known == mClients.end()) {
            return Json();
        }
        auto const& [name, owner, refusals] = known->second;
        Reclaim const* const asked = reclaimFrom(client);
        return Json{{"client", client},
                    {"name", name},
                    {"process", owner.pid},
                    {"program", owner.program},
                    {"priority", owner.priority},
                    {"seconds", secondsSince(since)},
                    {"refusals", refusals},
                    {"askedSeconds", asked == nullptr ? Json() : Json(secondsSince(asked->since))},
                    {"stuck", isStuck(client)}};
    };
    Json cores = Json::array();
    for (auto const& lease : mCores) {
        cores.push_back({{"type", lease.core.type},
                         {"use", lease.core.encoder ? "encoder" : "decoder"},
                         {"width", lease.core.maxWidth},
                         {"height", lease.core.maxHeight},
                         {"old", lease.retired},
                         {"holder", whose(lease.holder, lease.grantedAt)}});
    }
    Json ports = Json::array();
    for (auto const& lease : mPorts) {
        ports.push_back(
            {{"port", ports.size() + 1}, {"holder", whose(lease.holder, lease.grantedAt)}});
    }
    Json requests = Json::array();
    for (auto const& [number, pending] : mPending) {
        auto const& wish = pending.request;
        int const asked = waitsFor(number);
        requests.push_back({{"use", wish.display   ? "port"
                                    : wish.encoder ? "encoder"
                                                   : "decoder"},
                            {"width", wish.width},
                            {"height", wish.height},
                            {"waitsFor", asked == 0 ? Json() : Json(asked)},
                            {"by", whose(pending.client, pending.since)}});
    }
    Json const all{
        {"cores", cores}, {"ports", ports}, {"requests", requests}, {"clients", mClients.size()}};
    return all.dump(2, ' ', true, Json::error_handler_t::replace) + "\n";
}

}  // namespace kvo::host
