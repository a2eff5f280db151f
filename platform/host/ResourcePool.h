#pragma once

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <list>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "host/HostPlatform.h"

namespace kvo::host {

/// The resource manager's state and decisions: who holds which codec core and display port, who
/// gets one next, and who is asked to give one up. It knows no threads, transport or C interface:
/// whoever drives it calls it from one thread at a time, and calls advance() after every other
/// operation and at nextDeadline(). How it decides is at the top of ResourcePool.cpp.
class ResourcePool {
public:
    using Clock = std::chrono::steady_clock;

    // Result codes.
    static constexpr int kInvalid = -EINVAL;  ///< No such client, or a request without sense.
    static constexpr int kUnsupported =
        -EOPNOTSUPP;                      ///< No core of the pool could ever serve the request.
    static constexpr int kBusy = -EBUSY;  ///< Nothing is free, or its holders keep it.
    static constexpr int kStuck = -ETIMEDOUT;  ///< A holder has not answered in time.
    static constexpr int kNothingHeld = -ENODATA;
    static constexpr int kNoService = -ECONNREFUSED;  ///< Of the client library: no service to ask.

    /// How long a request may take, and how long a holder may be asked before it counts as stuck.
    /// For half of that a request waits for one holder before it asks another as well.
    static constexpr std::chrono::seconds kPatience{10};

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

    /// Numbers of requests, oldest first.
    using Number = std::int64_t;

    /// What its driver has to do.
    struct Step {
        Number request = 0;
        int code = 0;     ///< Of the request's answer, with which it is forgotten, unless:
        int reclaim = 0;  ///< 0, or the reclaim in which `holder` is to be asked for the request;
        int holder = 0;   ///< finishReclaim() is told its answer. Else who gave it up; 0: nobody.
        int client = 0;   ///< Whose request it is, for what and how old.
        Request wish;
        Clock::duration waited{0};
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
                          Clock::time_point (*now)() = &Clock::now,
                          Clock::duration patience = kPatience);

    /// Replaces the cores. Those that are in both pools stay; who holds one of the others keeps it,
    /// and is not asked for it.
    void setCores(std::vector<CodecCore> const& cores);

    /// Sets how long a client holds a core or port before it may be asked for it; at first no time.
    void setLeastHold(Clock::duration time) { mLeastHold = time; }

    /// Opens a client and returns its unique id, which is above `above` and, unless that is beyond
    /// all that were given out, above every earlier one, until the numbers are used up and start
    /// anew.
    int openClient(std::string name, Owner owner, int above = 0);

    /// Changes the priority of an open client.
    void setPriority(int client, int priority) { mClients.at(client).owner.priority = priority; }

    /// Closes a client, which gives back all it holds and ends its requests; false when there is
    /// none of this id.
    bool closeClient(int client);

    /// Says whether a client is open.
    [[nodiscard]] bool isOpen(int client) const { return mClients.count(client) != 0; }

    /// Returns the open clients by their ids, oldest first.
    [[nodiscard]] std::map<int, Client> const& clients() const { return mClients; }

    /// Returns what a client holds.
    [[nodiscard]] Holding holding(int client) const;

    /// Gives back all that a client holds.
    void giveBack(int client);

    /// Notes a request and returns its number. One that comes from inside a reclaim's callback
    /// names that reclaim, any other 0. `tryOnly`: nobody is asked for it.
    Number request(int client, Request const& request, bool tryOnly, int insideReclaim);

    /// Returns what is to be done now, in this order.
    std::vector<Step> advance();

    /// Starts a reclaim from an open client that no request asked for, and returns its number.
    int startReclaim(int client);

    /// Ends a reclaim; when the client gave up, takes what it holds. Never too late.
    void finishReclaim(int reclaim, bool gaveUp);

    /// Returns the next time at which there may be something to do, though nothing has happened;
    /// the far future for none.
    [[nodiscard]] Clock::time_point nextDeadline() const;

    /// Returns the client whose answer a waiting request waits for; 0 for none.
    [[nodiscard]] int waitsFor(Number request) const;

    /// Names the clients that have not answered a reclaim in time.
    [[nodiscard]] std::string stuckClients() const;

    /// Names a client for people.
    [[nodiscard]] std::string nameOf(int client) const;

    /// Says what a step is, and of a reclaim in flight who is asked and since when.
    [[nodiscard]] std::string describe(Step const& step) const;
    [[nodiscard]] std::string describeReclaim(int reclaim) const;

    /// Returns tables for people: each core, each port, each waiting request.
    [[nodiscard]] std::string describe() const;

    /// Returns the same for programs; docs/host-platform.md describes the form.
    [[nodiscard]] std::string describeAsJson() const;

private:
    static constexpr int kIdsBegin = 70000;

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
        Number request;  ///< That gets what is given up; once it has ended the oldest it fits.
        std::uint64_t takeFrom;  ///< Bound for the requests made inside it.
        Clock::time_point since;
    };
    /// A request's values, its client's priority and who has refused.
    using Wish = std::tuple<bool, bool, int, int, int, std::set<int>>;
    struct Pending {
        int client;
        Request request;
        bool tryOnly;
        int insideReclaim;
        std::uint64_t takeFrom;  ///< Only what is held since before this may be asked for.
        Clock::time_point since;
        bool granted;
        int grantedIn;  ///< The reclaim that it is granted from, if its callback still runs.
        int givenBy;    ///< Who gave up for it what it is granted; 0 for nobody.
        int waitsFor;   ///< The client whose answer it waits for; 0 for none.
        std::set<int> refused;  ///< Clients that keep what they hold.
        std::optional<Wish> queue;
    };

    [[nodiscard]] static bool fits(CodecCore const& core, Request const& request);
    [[nodiscard]] std::tuple<bool, int, std::int64_t, std::uint64_t> order(
        Lease const& lease) const;
    [[nodiscard]] bool mayAsk(Lease const& lease, Pending const& pending,
                              std::set<int> const& dependents) const;

    [[nodiscard]] std::vector<Lease const*> leases(Request const& request) const;
    template <typename Use>
    void forDeadlines(Use const& use) const;
    void lookAtClock();
    void decide(Number number, std::vector<Step>& steps);
    void serveInOrder();
    [[nodiscard]] bool makesSense(Pending const& pending) const;
    bool serve(Pending& pending);
    bool grantFreePort(int client);
    bool grantFreeCore(int client, Request const& request);
    void grant(Lease& lease, int client);
    void giveBackCore(int client);
    void dropRetired();
    bool followsAnother(Number number, Pending& pending);
    void leaveQueue(Number number, Pending& pending);
    [[nodiscard]] Number firstLike(Pending const& pending) const;
    void waitFor(Number number, int holder);
    void wakeWaitersFor(int holder);
    void lookAtRequestsOf(int client);
    [[nodiscard]] Reclaim const* reclaimFrom(int client) const;
    [[nodiscard]] bool isStuck(int client) const;
    [[nodiscard]] bool isSlow(Lease const& lease) const;
    [[nodiscard]] std::set<int> dependentsOn(Pending const& pending) const;
    [[nodiscard]] int priorityOf(int client) const;
    [[nodiscard]] std::string describeAnswers(int client) const;
    int newReclaim(int holder, Number request, std::uint64_t takeFrom);

    Clock::time_point (*mNow)();
    Clock::duration const mPatience;
    std::list<Core> mCores;  ///< Their addresses stay.
    std::array<Lease, kPorts> mPorts;
    bool mIsFreed = false;  ///< Since serveInOrder() has looked.
    Clock::duration mLeastHold{0};
    std::map<int, Client> mClients;  ///< By unique id.
    std::map<Number, Pending> mPending;
    std::set<std::pair<int, Number>> mRequests;  ///< The same by client.
    std::set<Number> mUndecided;                 ///< Those of them to be looked at.
    std::set<std::pair<int, Number>> mWaiters;   ///< Those that wait for a holder, by holder.
    std::set<std::pair<Wish, Number>> mQueues;   ///< Those that the first of them decides for.
    std::map<int, Reclaim> mReclaims;
    Clock::time_point mLookedAt;  ///< At the clock.
    int mLastClient = kIdsBegin;
    Number mLastRequest = 0;
    int mLastReclaim = 0;
    std::uint64_t mOrder = 0;
};

}  // namespace kvo::host
