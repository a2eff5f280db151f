// The resource manager of the client library that talks to the service.

#include <pthread.h>
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
#include <tuple>

#include "host/ResourceManager.h"
#include "host/SystemPolicy.h"
#include "service/BusNames.h"

namespace kvo::service {

namespace {

using host::ResourcePool;

using Clock = std::chrono::steady_clock;

/// How long the service may take for an answer that it has at once.
constexpr std::chrono::seconds kCallPatience{5};

constexpr std::uint64_t kForever = UINT64_MAX;  ///< Microseconds.

/// The reclaim whose callback runs on this thread; 0 for none.
thread_local int tReclaim = 0;

class RemoteManager final : public host::ResourceManager, public host::SystemPolicy {
public:
    /// `ofParent`: that of the process from which this one was forked, whose threads are not here.
    explicit RemoteManager(RemoteManager const* ofParent) : mOfParent(ofParent) {}

    int open(std::string const& name, TVHW_CRM_RECLAIM_CALLBACK function, void* cookie,
             int& client) override {
        std::tuple<int, int> opened;
        auto const& [code, id] = opened;
        int const above = mLastClient;
        int const failure =
            callOr([this](int, int late) { notify(kServiceName, "CloseClient", late); },
                   "OpenClient", kCallPatience, opened, name, above);
        if (failure != 0 || code != 0) {
            return failure != 0 ? failure : code;
        }
        std::lock_guard<std::mutex> const lock(mMutex);
        mClients[id] = {function, cookie};
        mLastClient = std::max<int>(mLastClient, id);
        client = id;
        return 0;
    }

    int close(int client) override {
        if (!forget(client)) {
            return ResourcePool::kInvalid;
        }
        // What a service that has gone since gave out is not held any longer.
        std::tuple<int> code;
        call("CloseClient", kCallPatience, code, client);
        return 0;
    }

    bool isOpen(int client) override {
        std::lock_guard<std::mutex> const lock(mMutex);
        return mClients.count(client) != 0;
    }

    int acquire(int client, ResourcePool::Request const& request, bool tryOnly) override {
        constexpr auto kAcquirePatience = ResourcePool::kPatience + kCallPatience;
        auto const end = Clock::now() + kAcquirePatience;
        std::tuple<int> code;
        int const result =
            callFor(client, "Acquire", kAcquirePatience, code, request.display, request.encoder,
                    request.codecType, request.width, request.height, tryOnly, tReclaim);
        if (result == ResourcePool::kNoService && Clock::now() >= end && forget(client)) {
            // It holds nothing, should the service ever go on.
            notify(kServiceName, "CloseClient", client);
        }
        return result;
    }

    int describe(int client, TVHW_CRM_RESOURCE& resource) override {
        std::tuple<int, int, int, int, int> held;
        int const result = callFor(client, "GetHolding", kCallPatience, held);
        if (result == 0) {
            auto const& [code, core, port, maxWidth, maxHeight] = held;
            resource = {core, port, {}, maxWidth, maxHeight, {}};
        }
        return result;
    }

    int giveBack(int client) override {
        std::tuple<int> code;
        return callFor(client, "GiveBack", kCallPatience, code);
    }

    bool allowsForcedAcquire(int pid) override {
        std::tuple<bool> allows;
        return call("AllowsForcedAcquire", kCallPatience, allows, pid) == 0 && std::get<0>(allows);
    }

    void onProcessReclaimed(int pid) override { emit("ProcessReclaimed", pid); }

    void onReclaimedClientReleased(int pid) override { emit("ReclaimedClientReleased", pid); }

    std::string status() {
        std::tuple<std::string> text("There is no service.\n");
        call("Status", kCallPatience, text);
        return std::get<0>(text);
    }

private:
    /// A connection to the bus, whose messages a thread of its own handles until it is lost.
    struct Bus {
        std::unique_ptr<sdbus::IConnection> connection;
        std::unique_ptr<sdbus::IProxy> daemon;
        std::unique_ptr<sdbus::IProxy> service;
        std::unique_ptr<sdbus::IObject> object;
        std::string owner;  ///< Of the service's name: its unique name. The thread's own.
        std::promise<void> open;
        std::shared_future<void> opened = open.get_future().share();
        std::atomic<bool> lost{false};
    };
    struct Client {
        TVHW_CRM_RECLAIM_CALLBACK function;
        void* cookie;
    };

    /// Calls the service and writes its results. Returns 0, or a code when it cannot be called or
    /// has not answered in time; `late` is called with an answer that comes even later.
    template <typename Late, typename... Results, typename... Arguments>
    int callOr(Late const& late, std::string const& method, Clock::duration patience,
               std::tuple<Results...>& results, Arguments const&... arguments) {
        auto const end = Clock::now() + patience;
        auto waiter = std::make_shared<std::promise<std::tuple<Results...>>>();
        auto answer = waiter->get_future();
        // Keeps a reference to the name of the method, which therefore must be no temporary string.
        int const failure = use(end, [&](Bus& bus) {
            auto call = bus.service->callMethodAsync(method);
            call.onInterface(kServiceInterface).withTimeout(kForever).withArguments(arguments...);
            call.uponReplyInvoke([&bus, waits = std::weak_ptr(waiter), late](
                                     sdbus::Error const* error, Results... values) {
                bool const counts = error == nullptr && bus.owner == senderOf(*bus.service);
                auto const waiting = waits.lock();
                if (waiting != nullptr && counts) {
                    waiting->set_value({values...});
                } else if (waiting != nullptr) {
                    waiting->set_exception(std::make_exception_ptr(std::logic_error("refused")));
                } else if (counts) {
                    late(values...);
                }
            });
        });
        if (failure != 0) {
            return failure;
        }
        answer.wait_until(end);
        waiter.reset();
        try {
            results = answer.get();
            return 0;
        } catch (std::logic_error const&) {
            return ResourcePool::kNoService;  // Nobody has answered whose answer counts.
        }
    }

    template <typename... Results, typename... Arguments>
    int call(std::string const& method, Clock::duration patience, std::tuple<Results...>& results,
             Arguments const&... arguments) {
        return callOr([](Results const&...) {}, method, patience, results, arguments...);
    }

    /// The same for a client of this process, and returns the code that is the first result.
    template <typename... Results, typename... Arguments>
    int callFor(int client, std::string const& method, Clock::duration patience,
                std::tuple<Results...>& results, Arguments const&... arguments) {
        if (!isOpen(client)) {
            return ResourcePool::kInvalid;
        }
        int const failure = call(method, patience, results, client, arguments...);
        return failure != 0 ? failure : std::get<0>(results);
    }

    /// Calls the service of a name on the bus without waiting for an answer.
    template <typename... Arguments>
    void notify(std::string const& service, char const* method, Arguments const&... arguments) {
        use(Clock::now() + kCallPatience, [&](Bus& bus) {
            sdbus::createProxy(*bus.connection, service, kServicePath)
                ->callMethod(method)
                .onInterface(kServiceInterface)
                .withArguments(arguments...)
                .dontExpectReply();
        });
    }

    /// Tells whoever listens on the bus.
    void emit(char const* signal, int pid) {
        use(Clock::now() + kCallPatience, [&](Bus& bus) {
            bus.object->emitSignal(signal).onInterface(kServiceInterface).withArguments(pid);
        });
    }

    /// Lets `send` send something over the bus. Returns 0, or a code when that cannot be sent.
    template <typename Send>
    int use(Clock::time_point end, Send const& send) {
        auto const bus = connect(end);
        if (bus == nullptr) {
            return ResourcePool::kNoService;
        }
        try {
            send(*bus);
            return 0;
        } catch (sdbus::Error const& error) {
            bool const isUnsendable = error.getName() == "org.freedesktop.DBus.Error.InvalidArgs";
            return isUnsendable ? ResourcePool::kInvalid : ResourcePool::kNoService;
        }
    }

    /// Forgets a client; returns false when there is none.
    bool forget(int client) {
        std::lock_guard<std::mutex> const lock(mMutex);
        return mClients.erase(client) != 0;
    }

    /// Returns the connection to the bus, a new one when the last was lost; null without a bus, and
    /// when there is none until `end`.
    std::shared_ptr<Bus> connect(Clock::time_point end) {
        std::unique_lock<std::mutex> lock(mMutex);
        if (mBus == nullptr || mBus->lost) {
            mBus = std::make_shared<Bus>();
            std::thread([this, bus = mBus] { serve(*bus); }).detach();
        }
        auto const bus = mBus;
        lock.unlock();
        bool const isOpened = bus->opened.wait_until(end) == std::future_status::ready;
        return isOpened && !bus->lost ? bus : nullptr;
    }

    /// Connects to the bus, which may take long, and handles its messages until it is lost.
    void serve(Bus& bus) {
        try {
            open(bus);
        } catch (sdbus::Error const&) {
            bus.lost = true;
        }
        bus.open.set_value();
        try {
            while (!bus.lost) {
                bus.connection->enterEventLoop();
            }
        } catch (sdbus::Error const&) {
            bus.lost = true;  // And with it everybody who could call.
        }
    }

    void open(Bus& bus) {
        bus.connection = sdbus::createSessionBusConnection();
        bus.daemon = sdbus::createProxy(*bus.connection, kBusDaemon, kBusDaemonPath);
        bus.service = sdbus::createProxy(*bus.connection, kServiceName, kServicePath);
        bus.object = sdbus::createObject(*bus.connection, kClientPath);
        bus.object->registerMethod("Reclaim")
            .onInterface(kClientInterface)
            .implementedAs([this, &bus](int client, int reclaim) {
                if (bus.owner == senderOf(*bus.object)) {
                    onReclaim(client, reclaim, bus.owner);
                }
            })
            .withNoReply();
        // NOLINTNEXTLINE(clang-analyzer-*NewDeleteLeaks): it takes the handler for leaked.
        bus.object->finishRegistration();
        bus.connection->addMatch(
            std::string("type='signal',sender='") + kBusDaemon +
                "',member='NameOwnerChanged',arg0='" + kServiceName + "'",
            [&bus](sdbus::Message& message) {
                std::string name;
                std::string ignored;
                if (message.getSender() == kBusDaemon) {
                    message >> name >> ignored >> bus.owner;
                }
            },
            sdbus::floating_slot);
        askForOwner(bus);
    }

    /// Learns who has the service's name now, before any answer from there can come.
    static void askForOwner(Bus& bus) {
        std::string const name = kServiceName;
        bus.daemon->callMethodAsync("GetNameOwner")
            .onInterface(kBusDaemon)
            .withArguments(name)
            .uponReplyInvoke([&bus](sdbus::Error const* error, std::string const& owner) {
                if (senderOf(*bus.daemon) != kBusDaemon) {
                    askForOwner(bus);  // Somebody else has answered.
                } else if (error == nullptr) {
                    bus.owner = owner;
                }
            });
    }

    /// Returns who has sent the message that is being handled.
    template <typename Handler>
    static std::string senderOf(Handler const& handler) {
        return handler.getCurrentlyProcessedMessage()->getSender();
    }

    /// Answers the service of this unique name for a client, on a thread of its own: the callback
    /// may block, and call the service. By then another service may run, which counts its reclaims
    /// anew.
    void onReclaim(int client, int reclaim, std::string const& service) {
        Client asked{};
        {
            std::lock_guard<std::mutex> const lock(mMutex);
            auto const found = mClients.find(client);
            if (found != mClients.end()) {
                asked = found->second;
            }
        }
        std::thread([this, asked, client, reclaim, service] {
            tReclaim = reclaim;
            // Whom nobody knows here holds nothing.
            int const answer = asked.function == nullptr
                                   ? 1
                                   : host::callReclaim(asked.function, client, asked.cookie);
            notify(service, "AnswerReclaim", reclaim, answer);
        }).detach();
    }

    /// Not to be used: its locks may be held for good. Kept, so that it counts as no leak.
    [[maybe_unused]] RemoteManager const* const mOfParent;
    std::mutex mMutex;
    std::shared_ptr<Bus> mBus;
    std::map<int, Client> mClients;
    std::atomic<int> mLastClient{0};
};

std::atomic<RemoteManager*> gManager{nullptr};

void start() {
    gManager = new RemoteManager(gManager);
    host::setSystemPolicy(*gManager);
}

RemoteManager& manager() { return *gManager; }

[[maybe_unused]] bool const gStarts = [] {
    start();
    // A child has none of the threads, and must not use its parent's name on the bus.
    pthread_atfork(nullptr, nullptr, start);
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
