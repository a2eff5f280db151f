// The resource manager of the client library that talks to the service.

#include <sdbus-c++/sdbus-c++.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

#include "host/ResourceManager.h"
#include "host/SystemPolicy.h"
#include "service/BusNames.h"

namespace kvo::service {

namespace {

using host::ResourcePool;

/// For calls that the service answers at once, in microseconds.
constexpr unsigned long long kCallTimeout = 5'000'000;

/// The reclaim whose callback runs on this thread; 0 for none.
thread_local int tReclaim = 0;

class RemoteManager final : public host::ResourceManager, public host::SystemPolicy {
public:
    RemoteManager() = default;

    int open(std::string const& name, TVHW_CRM_RECLAIM_CALLBACK function, void* cookie,
             int& client) override {
        std::string service;
        int code = 0;
        int id = 0;
        int const above = mLastClient;
        int const result =
            call("OpenClient", kCallTimeout, std::tie(code, id, service), name, above);
        if (result != 0) {
            return result;
        }
        std::lock_guard<std::mutex> const lock(mMutex);
        mClients[id] = {service, function, cookie};
        mLastClient = std::max<int>(mLastClient, id);
        client = id;
        return 0;
    }

    int close(int client) override {
        {
            std::lock_guard<std::mutex> const lock(mMutex);
            if (mClients.erase(client) == 0) {
                return ResourcePool::kInvalid;
            }
        }
        // What a service that has gone since gave out is not held any longer.
        int code = 0;
        call("CloseClient", kCallTimeout, std::tie(code), client);
        return 0;
    }

    bool isOpen(int client) override {
        std::lock_guard<std::mutex> const lock(mMutex);
        return mClients.count(client) != 0;
    }

    int acquire(int client, ResourcePool::Request const& request, bool tryOnly) override {
        int code = 0;
        return call("Acquire", kNoTimeout, std::tie(code), client, request.display, request.encoder,
                    request.codecType, request.width, request.height, tryOnly, tReclaim);
    }

    int describe(int client, TVHW_CRM_RESOURCE& resource) override {
        int code = 0;
        int core = 0;
        int port = 0;
        int maxWidth = 0;
        int maxHeight = 0;
        int const result = call("GetHolding", kCallTimeout,
                                std::tie(code, core, port, maxWidth, maxHeight), client);
        if (result == 0) {
            resource = {core, port, {}, maxWidth, maxHeight, {}};
        }
        return result;
    }

    int giveBack(int client) override {
        int code = 0;
        return call("GiveBack", kCallTimeout, std::tie(code), client);
    }

    bool allowsForcedAcquire(int pid) override {
        bool allows = false;
        ask([&](sdbus::IProxy& service) {
            service.callMethod("AllowsForcedAcquire")
                .onInterface(kServiceInterface)
                .withTimeout(kCallTimeout)
                .withArguments(pid)
                .storeResultsTo(allows);
        });
        return allows;
    }

    void onProcessReclaimed(int pid) override { notify("NotifyReclaimed", pid); }

    void onReclaimedClientReleased(int pid) override { notify("NotifyReleased", pid); }

    std::string status() {
        std::string text = "There is no service.\n";
        ask([&](sdbus::IProxy& service) {
            service.callMethod("Status").onInterface(kServiceInterface).storeResultsTo(text);
        });
        return text;
    }

private:
    /// A connection to the bus, whose messages a thread of its own handles until it is lost.
    struct Bus {
        std::unique_ptr<sdbus::IConnection> connection;
        std::unique_ptr<sdbus::IProxy> service;
        std::unique_ptr<sdbus::IObject> object;
        std::atomic<bool> lost{false};
    };
    struct Client {
        std::string service;  ///< Unique name on the bus of who may ask it.
        TVHW_CRM_RECLAIM_CALLBACK function;
        void* cookie;
    };

    /// Lets `calls` call the service. Returns 0, or a code at once when they cannot be answered.
    template <typename Calls>
    int ask(Calls const& calls) {
        auto const bus = connect();
        if (bus == nullptr) {
            return ResourcePool::kNoService;
        }
        try {
            calls(*bus->service);
            return 0;
        } catch (sdbus::Error const& error) {
            bool const isUnsendable = error.getName() == "org.freedesktop.DBus.Error.InvalidArgs";
            return isUnsendable ? ResourcePool::kInvalid : ResourcePool::kNoService;
        }
    }

    /// Calls the service, and returns the code that it answers with, the first of `results`, or
    /// that of ask().
    template <typename... Results, typename... Arguments>
    int call(std::string const& method, unsigned long long timeout, std::tuple<Results&...> results,
             Arguments const&... arguments) {
        int const asked = ask([&](sdbus::IProxy& service) {
            // Keeps a reference to the name, which therefore must not be a temporary string.
            auto invoker = service.callMethod(method);
            invoker.onInterface(kServiceInterface).withTimeout(timeout).withArguments(arguments...);
            std::apply([&](auto&... result) { invoker.storeResultsTo(result...); }, results);
        });
        return asked == 0 ? std::get<0>(results) : asked;
    }

    void notify(char const* method, int pid) {
        ask([&](sdbus::IProxy& service) {
            service.callMethod(method)
                .onInterface(kServiceInterface)
                .withArguments(pid)
                .dontExpectReply();
        });
    }

    /// Returns the connection to the bus, a new one when the last was lost; null without a bus.
    std::shared_ptr<Bus> connect() {
        std::lock_guard<std::mutex> const lock(mMutex);
        if (mBus != nullptr && !mBus->lost) {
            return mBus;
        }
        try {
            auto bus = std::make_shared<Bus>();
            bus->connection = sdbus::createSessionBusConnection();
            bus->service = sdbus::createProxy(*bus->connection, kServiceName, kServicePath);
            bus->object = sdbus::createObject(*bus->connection, kClientPath);
            bus->object->registerMethod("Reclaim")
                .onInterface(kClientInterface)
                .implementedAs([this, called = std::weak_ptr(bus)](
                                   sdbus::Result<std::int32_t>&& reply, std::int32_t const& client,
                                   std::int32_t const& reclaim) {
                    onReclaim(called.lock(), std::move(reply), client, reclaim);
                });
            // NOLINTNEXTLINE(clang-analyzer-*NewDeleteLeaks): it takes the handler for leaked.
            bus->object->finishRegistration();
            std::thread([bus] {
                try {
                    bus->connection->enterEventLoop();
                } catch (sdbus::Error const&) {
                    // The bus is gone, and with it everybody who could call.
                }
                bus->lost = true;
            }).detach();
            waitForEventLoop(*bus->connection);
            mBus = std::move(bus);
        } catch (sdbus::Error const&) {
            mBus = nullptr;
        }
        return mBus;
    }

    /// Waits until the connection's thread handles messages. A call that is made before then keeps
    /// the connection to itself until it is answered, so that no reclaim gets through meanwhile.
    static void waitForEventLoop(sdbus::IConnection& connection) {
        auto const running = std::make_shared<std::promise<void>>();
        auto future = running->get_future();
        auto const daemon =
            sdbus::createProxy(connection, "org.freedesktop.DBus", "/org/freedesktop/DBus");
        daemon->callMethodAsync("GetId")
            .onInterface("org.freedesktop.DBus")
            .uponReplyInvoke(
                [running](sdbus::Error const*, std::string const&) { running->set_value(); });
        future.wait_for(std::chrono::microseconds(kCallTimeout));
    }

    /// Answers the service for a client, on a thread of its own: the callback may block, and call
    /// the service. Only the service that the client was opened at may ask. `bus`, by which it
    /// asks, may be lost and replaced meanwhile; it stays for the reply, which refers to it.
    void onReclaim(std::shared_ptr<Bus> bus, sdbus::Result<std::int32_t>&& reply, int client,
                   int reclaim) {
        std::string const sender = bus->object->getCurrentlyProcessedMessage()->getSender();
        Client asked;
        {
            std::lock_guard<std::mutex> const lock(mMutex);
            auto const found = mClients.find(client);
            if (found == mClients.end() || found->second.service != sender) {
                reply.returnResults(1);  // There is nothing here that the sender could have given.
                return;
            }
            asked = found->second;
        }
        std::thread([bus = std::move(bus), held = std::move(reply), asked, client,
                     reclaim]() mutable {
            auto const answered = std::move(held);  // Goes before the bus does.
            tReclaim = reclaim;
            int const answer = host::callReclaim(asked.function, client, asked.cookie);
            try {
                answered.returnResults(answer);
            } catch (sdbus::Error const&) {
                // Nobody is left to be answered.
            }
        }).detach();
    }

    std::mutex mMutex;
    std::shared_ptr<Bus> mBus;
    std::map<int, Client> mClients;
    std::atomic<int> mLastClient{0};
};

RemoteManager& manager() {
    static auto& theManager = *new RemoteManager;
    return theManager;
}

[[maybe_unused]] bool const gDecides = [] {
    host::setSystemPolicy(manager());
    return true;
}();

[[noreturn]] void refuseControl() {
    throw std::logic_error("the pool is the service's: it is set where the service is started");
}

}  // namespace

}  // namespace kvo::service

namespace kvo::host {

ResourceManager& resourceManager() { return service::manager(); }

std::string describe() { return service::manager().status(); }

// The controls of HostPlatform.h that have no meaning for a pool shared with other processes.

void setPool(std::vector<CodecCore> const&) { service::refuseControl(); }

void forceGrant(ForcedGrant) { service::refuseControl(); }

std::vector<CrmClient> crmClients() { service::refuseControl(); }

std::future<int> reclaim(int) { service::refuseControl(); }

}  // namespace kvo::host
