#pragma once

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <list>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "host/HostPlatform.h"

namespace kvo::host {

/// The resource manager's state and decisions: who holds which codec core and display port, who
/// gets one next, and who is asked to give one up. It knows no threads, transport or C interface:
/// whoever drives it calls it from one thread at a time, runs the reclaims that it asks for, and
/// looks again, with advance(), at the requests that wait whenever something has changed. How it
/// decides is at the top of ResourcePool.cpp.
class ResourcePool {
public:
    using Clock = std::chrono::steady_clock;

    // Result codes.
    static constexpr int kInvalid = -EINVAL;  ///< No such client, or a request without sense.
    static constexpr int kUnsupported =
        -EOPNOTSUPP;                      ///< No core of the pool could ever serve the request.
    static constexpr int kBusy = -EBUSY;  ///< Nothing is free, or its holders keep it.
    static constexpr int kStuck = -ETIMEDOUT;  ///< A holder has not answered in kReclaimLimit.
    static constexpr int kNothingHeld = -ENODATA;
    static constexpr int kNoService = -ECONNREFUSED;  ///< Of the client library: no service to ask.

    /// How long a reclaim may take. Its holder then keeps what it has.
    static constexpr std::chrono::seconds kReclaimLimit{10};

    /// The number of display ports, which count from 1.
    static constexpr int kPorts = 2;

    /// What a client asks for: a display port, or a core of at least this size.
    struct Request {
        bool display = false;
        bool encoder = false;
        int codecType = 0;  ///< 0: the manager knows none, so that no core fits.
        int width = 0;      ///< Pixels.
        int height = 0;     ///< Pixels.
    };

    /// What its driver has to do for a request.
    struct Step {
        enum class Kind {
            kFinished,  ///< Answer the request with `code`. Its number is forgotten.
            kReclaim,   ///< Ask client `holder`; tell finishReclaim(`reclaim`) what it says.
            kWait,      ///< Come back when something has changed, at `deadline` at the latest.
        };
        Kind kind = Kind::kFinished;
        int code = 0;
        int reclaim = 0;
        int holder = 0;
        Clock::time_point deadline;
    };

    /// What a client holds.
    struct Holding {
        CodecCore const* core = nullptr;  ///< Null for none.
        int port = 0;                     ///< 0 for none.
    };

    /// The process that a client belongs to.
    struct Owner {
        int pid = 0;
        std::string program;
        int priority = 0;  ///< Only who has at least that of a holder may ask it to give up.
    };

    /// An open client.
    struct Client {
        std::string name;
        Owner owner;
        int refusals = 0;  ///< Reclaims that it answered with no.
    };

    /// A pool of these cores, whose reclaims are overdue by what `now` tells.
    explicit ResourcePool(std::vector<CodecCore> const& cores,
                          Clock::time_point (*now)() = &Clock::now);

    /// Replaces the cores. Who holds one of the old ones keeps it, and is not asked for it.
    void setCores(std::vector<CodecCore> const& cores);

    /// Opens a client and returns its unique id, which is above `above` and, unless that is beyond
    /// all that were given out, above every earlier one.
    int openClient(std::string name, Owner owner, int above = 0);

    /// Closes a client, which gives back all it holds; false when there is none of this id.
    bool closeClient(int client);

    /// Says whether a client is open.
    [[nodiscard]] bool isOpen(int client) const { return mClients.count(client) != 0; }

    /// Returns the open clients by their ids, oldest first.
    [[nodiscard]] std::map<int, Client> const& clients() const { return mClients; }

    /// Returns what a client holds.
    [[nodiscard]] Holding holding(int client) const;

    /// Gives back all that a client holds.
    void giveBack(int client);

    /// Notes a request and returns its number, for advance(). One that comes from inside a
    /// reclaim's callback names that reclaim, any other 0. `tryOnly`: nobody is asked for it.
    int request(int client, Request const& request, bool tryOnly, int insideReclaim);

    /// Returns what is to be done next for a request. To be called until it is finished.
    Step advance(int request);

    /// Starts a reclaim from an open client that no request asked for, and returns its number.
    int startReclaim(int client);

    /// Ends a reclaim; when the client gave up, takes what it holds. Never too late.
    void finishReclaim(int reclaim, bool gaveUp);

    /// Returns the next time at which a reclaim is overdue that is not yet; the far future for
    /// none.
    [[nodiscard]] Clock::time_point nextDeadline() const;

    /// Names the clients that have not answered a reclaim in time.
    [[nodiscard]] std::string stuckClients() const;

    /// Returns tables for people: each core, each port, each waiting request.
    [[nodiscard]] std::string describe() const;

private:
    /// A resource and who holds it: client 0 is nobody.
    struct Lease {
        int holder = 0;
        std::uint64_t since = 0;  ///< Order of the grant: lower is older.
        Clock::time_point grantedAt;
    };
    struct Core : Lease {
        CodecCore core;
        bool retired = false;  ///< Of a pool that was replaced; gone once it is given back.
    };
    struct Reclaim {
        int holder;
        int request;             ///< That it serves; 0 for none.
        std::uint64_t takeFrom;  ///< Bound for the requests made inside it.
        Clock::time_point deadline;
    };
    struct Pending {
        int client;
        Request request;
        bool tryOnly;
        int insideReclaim;
        std::uint64_t takeFrom;  ///< Only what is held since before this may be asked for.
        bool granted;
        int waitsFor;           ///< The client whose answer it waits for; 0 for none.
        std::set<int> refused;  ///< Clients that keep what they hold.
        Clock::time_point since;
    };

    [[nodiscard]] static bool fits(CodecCore const& core, Request const& request);
    [[nodiscard]] static bool fitsBetter(CodecCore const& left, CodecCore const& right);
    [[nodiscard]] bool isAskedBefore(Lease const& left, Lease const& right) const;
    [[nodiscard]] bool mayAsk(Lease const& lease, Pending const& pending) const;

    [[nodiscard]] bool isServable(Request const& request) const;
    [[nodiscard]] std::vector<Lease const*> leases(Request const& request) const;
    void serveInOrder();
    void serve(Pending& pending);
    bool grantFreePort(int client);
    bool grantFreeCore(int client, Request const& request);
    void grant(Lease& lease, int client);
    void giveBackCore(int client);
    void dropRetired();
    [[nodiscard]] Reclaim const* reclaimFrom(int client) const;
    [[nodiscard]] Reclaim const* reclaimFor(int request) const;
    [[nodiscard]] bool isStuck(int client) const;
    [[nodiscard]] bool answerDependsOn(int holder, Pending const& pending) const;
    [[nodiscard]] bool belongsTo(Pending const& pending, int client) const;
    Step finish(int number, int code);
    [[nodiscard]] int priorityOf(int client) const;
    [[nodiscard]] std::string describeReclaim(int client) const;
    int newReclaim(int holder, int request, std::uint64_t takeFrom);

    Clock::time_point (*mNow)();
    std::list<Core> mCores;  ///< Their addresses stay.
    std::array<Lease, kPorts> mPorts;
    std::map<int, Client> mClients;   ///< By unique id.
    std::map<int, Pending> mPending;  ///< By number: oldest first.
    std::map<int, Reclaim> mReclaims;
    int mLastClient = 70000;
    int mLastRequest = 0;
    int mLastReclaim = 0;
    std::uint64_t mOrder = 0;
};

}  // namespace kvo::host
