#include "host/ResourcePool.h"

#include <algorithm>
#include <iomanip>
#include <limits>
#include <sstream>
#include <utility>

namespace kvo::host {

namespace {

std::int64_t sizeOf(CodecCore const& core) { return std::int64_t{core.maxWidth} * core.maxHeight; }

/// Returns the next number after `last` that is not in use; when they are used up, from `first` on.
template <typename IsInUse>
int nextNumber(int last, int first, IsInUse const& isInUse) {
    do {
        last = last == std::numeric_limits<int>::max() ? first : last + 1;
    } while (isInUse(last));
    return last;
}

/// Returns the numbers that are paired with a key, in order.
template <typename Key>
std::vector<ResourcePool::Number> numbersOf(
    std::set<std::pair<Key, ResourcePool::Number>> const& pairs, Key const& key) {
    std::vector<ResourcePool::Number> result;
    for (auto pair = pairs.lower_bound({key, 0}); pair != pairs.end() && pair->first == key;
         ++pair) {
        result.push_back(pair->second);
    }
    return result;
}

}  // namespace

// --- The policy. What a holder gives up goes to the request that it was asked for. What is free
// for another reason goes to the oldest request that it can serve. A request takes the smallest
// free core, to keep the larger ones for who needs them.

/// Which cores can serve a request.
bool ResourcePool::fits(CodecCore const& core, Request const& request) {
    return request.codecType != 0 && core.encoder == request.encoder &&
           request.width <= core.maxWidth && request.height <= core.maxHeight;
}

/// Who is asked first: a holder of lower priority, then one with a smaller core, which it loses
/// also to who needs only its port, since a holder can only be asked for all; then who has held the
/// longest. Those come last who have not answered for long, or may not be asked yet.
std::tuple<bool, int, std::int64_t, std::uint64_t> ResourcePool::order(Lease const& lease) const {
    CodecCore const* const core = holding(lease.holder).core;
    return {isSlow(lease), priorityOf(lease.holder), core == nullptr ? 0 : sizeOf(*core),
            lease.since};
}

/// Whom a request that nothing free serves may ask: nobody of higher priority, nobody who has
/// refused or is stuck or holds too shortly while it can wait, nobody of `dependents`, whose
/// answers have to wait for this request. A request from inside a reclaim may only ask those who
/// held before that reclaim began: else two players that start anew whenever they lose their core
/// would take it from each other without end.
bool ResourcePool::mayAsk(Lease const& lease, Pending const& pending,
                          std::set<int> const& dependents) const {
    if (lease.since > pending.takeFrom || pending.refused.count(lease.holder) != 0 ||
        lease.grantedAt + mLeastHold >= pending.since + mPatience) {
        return false;
    }
    return priorityOf(lease.holder) <= priorityOf(pending.client) && !isStuck(lease.holder) &&
           dependents.count(lease.holder) == 0;
}

// --- What carries it out.

ResourcePool::ResourcePool(std::vector<CodecCore> const& cores, Clock::time_point (*now)(),
                           Clock::duration patience)
    : mNow(now), mPatience(patience) {
    setCores(cores);
}

void ResourcePool::setCores(std::vector<CodecCore> const& cores) {
    for (Core& core : mCores) {
        core.retired = true;
    }
    mCores.sort([](Core const& left, Core const& right) {  // Those that are held stay first of all.
        return left.holder != 0 && right.holder == 0;
    });
    for (CodecCore const& core : cores) {
        auto const same = std::find_if(mCores.begin(), mCores.end(), [&](Core const& old) {
            return old.retired && old.core.type == core.type && old.core.encoder == core.encoder &&
                   old.core.maxWidth == core.maxWidth && old.core.maxHeight == core.maxHeight;
        });
        if (same == mCores.end()) {
            mCores.push_back({{}, core});
        } else {
            same->retired = false;
            mCores.splice(mCores.end(), mCores, same);
        }
    }
    dropRetired();
    for (auto const& [number, pending] : mPending) {
        mUndecided.insert(number);
    }
}

int ResourcePool::openClient(std::string name, Owner owner, int above) {
    int const client = nextNumber(std::max(mLastClient, above), kIdsBegin + 1,
                                  [&](int id) { return isOpen(id) || reclaimFrom(id) != nullptr; });
    if (above <= mLastClient) {
        mLastClient = client;  // One process's bound does not use up the ids of the others.
    }
    mClients.emplace(client, Client{std::move(name), std::move(owner)});
    return client;
}

bool ResourcePool::closeClient(int client) {
    giveBack(client);
    lookAtRequestsOf(client);
    return mClients.erase(client) != 0;
}

ResourcePool::Holding ResourcePool::holding(int client) const {
    Holding result;
    for (Core const& core : mCores) {
        if (core.holder == client) {
            result.core = &core.core;
        }
    }
    for (int port = 1; port <= kPorts; ++port) {
        if (mPorts.at(static_cast<std::size_t>(port) - 1).holder == client) {
            result.port = port;
        }
    }
    return result;
}

void ResourcePool::giveBack(int client) {
    giveBackCore(client);
    for (Lease& port : mPorts) {
        if (port.holder == client) {
            port.holder = 0;
            mIsFreed = true;
        }
    }
    for (auto const& [number, reclaim] : mReclaims) {
        auto const asking = mPending.find(reclaim.request);
        if (reclaim.holder == client && asking != mPending.end() && serve(asking->second)) {
            asking->second.grantedIn = number;
            asking->second.givenBy = client;
        }
    }
}

ResourcePool::Number ResourcePool::request(int client, Request const& request, bool tryOnly,
                                           int insideReclaim) {
    auto const reclaim = mReclaims.find(insideReclaim);
    auto const takeFrom = reclaim == mReclaims.end() ? std::numeric_limits<std::uint64_t>::max()
                                                     : reclaim->second.takeFrom;
    mPending.emplace(
        ++mLastRequest,
        Pending{client, request, tryOnly, insideReclaim, takeFrom, mNow(), false, 0, 0, 0, {}, {}});
    mRequests.emplace(client, mLastRequest);
    mUndecided.insert(mLastRequest);
    return mLastRequest;
}

std::vector<ResourcePool::Step> ResourcePool::advance() {
    std::vector<Step> steps;
    lookAtClock();
    serveInOrder();
    while (!mUndecided.empty()) {
        Number const number = mUndecided.extract(mUndecided.begin()).value();
        if (mPending.count(number) != 0) {
            decide(number, steps);
            serveInOrder();
        }
    }
    return steps;
}

/// Answers a request or finds whom it waits for.
void ResourcePool::decide(Number number, std::vector<Step>& steps) {
    Pending& pending = mPending.at(number);
    waitFor(number, 0);
    auto const finish = [&](int code) {
        steps.push_back({number, code, 0, pending.givenBy, pending.client, pending.request,
                         mNow() - pending.since});
        leaveQueue(number, pending);
        mRequests.erase({pending.client, number});
        mPending.erase(number);
    };
    if (!makesSense(pending)) {
        return finish(kInvalid);
    }
    bool const isOver = pending.since + mPatience <= mNow();
    if (pending.granted || serve(pending)) {
        leaveQueue(number, pending);  // Who followed it may ask somebody else meanwhile.
        // Its holder may have given up but still be in its callback: what the newcomer does next
        // must not surprise it there.
        auto const source = mReclaims.find(pending.grantedIn);
        return source == mReclaims.end() || isOver ? finish(0)
                                                   : waitFor(number, source->second.holder);
    }
    auto const suitable = leases(pending.request);
    if (suitable.empty()) {
        return finish(kUnsupported);
    }
    if (pending.tryOnly) {
        return finish(kBusy);
    }
    if (followsAnother(number, pending)) {
        return;
    }
    Lease const* first = nullptr;
    bool isSomeoneStuck = isOver;
    auto const dependents = dependentsOn(pending);
    for (Lease const* const lease : suitable) {
        if (isOver || !mayAsk(*lease, pending, dependents)) {
            isSomeoneStuck = isSomeoneStuck || isStuck(lease->holder);
        } else if (first == nullptr || order(*lease) < order(*first)) {
            first = lease;
        }
    }
    if (first == nullptr) {
        return finish(isSomeoneStuck ? kStuck : kBusy);
    }
    waitFor(number, first->holder);
    if (reclaimFrom(first->holder) == nullptr && !isSlow(*first)) {
        int const reclaim = newReclaim(first->holder, number, std::min(mOrder, pending.takeFrom));
        steps.push_back({number, 0, reclaim, first->holder, pending.client, pending.request,
                         mNow() - pending.since});
    }
}

int ResourcePool::startReclaim(int client) { return newReclaim(client, 0, mOrder); }

void ResourcePool::finishReclaim(int reclaim, bool gaveUp) {
    auto const ended = mReclaims.find(reclaim);
    if (ended == mReclaims.end()) {
        return;
    }
    auto const [holder, request] = std::pair(ended->second.holder, ended->second.request);
    if (gaveUp) {
        giveBack(holder);  // While the reclaim still tells for whom.
    }
    mReclaims.erase(ended);
    if (!gaveUp && isOpen(holder)) {
        ++mClients.at(holder).refusals;
    }
    std::vector<Number> waiters{request};
    if (reclaimFrom(holder) == nullptr) {
        auto const others = numbersOf(mWaiters, holder);
        waiters.insert(waiters.end(), others.begin(), others.end());
    }
    for (Number const waiter : std::vector<Number>(waiters)) {
        auto const pending = mPending.find(waiter);
        if (!gaveUp && pending != mPending.end() && pending->second.queue) {
            auto const followers = numbersOf(mQueues, *pending->second.queue);
            waiters.insert(waiters.end(), followers.begin(), followers.end());
        }
    }
    for (Number const number : waiters) {
        auto const pending = mPending.find(number);
        if (pending != mPending.end()) {
            mUndecided.insert(number);
            if (!gaveUp) {
                pending->second.refused.insert(holder);
            }
        }
    }
}

/// Returns the leases of all resources that could serve a request.
std::vector<ResourcePool::Lease const*> ResourcePool::leases(Request const& request) const {
    std::vector<Lease const*> result;
    if (request.display) {
        for (Lease const& port : mPorts) {
            result.push_back(&port);
        }
        return result;
    }
    for (Core const& core : mCores) {
        if (!core.retired && fits(core.core, request)) {
            result.push_back(&core);
        }
    }
    return result;
}

/// Gives what is free to the requests that wait for anything, the oldest first.
void ResourcePool::serveInOrder() {
    auto const hasFree = [](auto const& leases) {
        return std::any_of(leases.begin(), leases.end(), [](auto& its) { return its.holder == 0; });
    };
    while (std::exchange(mIsFreed, false)) {
        for (auto& [number, pending] : mPending) {
            bool const isFree = pending.request.display ? hasFree(mPorts) : hasFree(mCores);
            if (isFree && serve(pending) && mIsFreed) {
                break;  // It has left another core, which may fit an older one.
            }
        }
    }
}

bool ResourcePool::makesSense(Pending const& pending) const {
    Request const& wish = pending.request;
    return isOpen(pending.client) && wish.codecType >= 0 && wish.width >= 0 && wish.height >= 0;
}

/// Gives a request something that is free; returns false when there is nothing or it has it
/// already.
bool ResourcePool::serve(Pending& pending) {
    if (pending.granted || !makesSense(pending)) {
        return false;
    }
    pending.granted = pending.request.display ? grantFreePort(pending.client)
                                              : grantFreeCore(pending.client, pending.request);
    return pending.granted;
}

bool ResourcePool::grantFreePort(int client) {
    if (holding(client).port != 0) {
        return true;
    }
    for (Lease& port : mPorts) {
        if (port.holder == 0) {
            grant(port, client);
            return true;
        }
    }
    return false;
}

bool ResourcePool::grantFreeCore(int client, Request const& request) {
    Core* best = nullptr;
    for (Core& core : mCores) {
        bool const isFree = core.holder == 0 || core.holder == client;
        if (isFree && !core.retired && fits(core.core, request) &&
            (best == nullptr || sizeOf(core.core) < sizeOf(best->core))) {
            best = &core;
        }
    }
    if (best == nullptr) {
        return false;
    }
    if (best->holder != client) {
        giveBackCore(client);
        grant(*best, client);
    }
    return true;
}

void ResourcePool::grant(Lease& lease, int client) {
    lease = {client, ++mOrder, mNow()};
    lookAtRequestsOf(client);  // They may follow nobody any longer.
}

void ResourcePool::giveBackCore(int client) {
    for (Core& core : mCores) {
        if (core.holder == client) {
            core.holder = 0;
            mIsFreed = true;
        }
    }
    dropRetired();
    wakeWaitersFor(client);
}

/// Says whether an older request decides for this one, too, as it differs in nothing but its age:
/// so that of many in a queue only the first is looked at. Only for clients whose answer nobody can
/// wait for, since they hold nothing; what they wait for then closes no ring.
bool ResourcePool::followsAnother(Number number, Pending& pending) {
    leaveQueue(number, pending);
    auto const held = holding(pending.client);
    if (held.core != nullptr || held.port != 0 || pending.insideReclaim != 0 ||
        reclaimFrom(pending.client) != nullptr) {
        return false;
    }
    Request const& wish = pending.request;
    pending.queue = Wish(wish.display, wish.encoder, wish.width, wish.height,
                         priorityOf(pending.client), pending.refused);
    mQueues.emplace(*pending.queue, number);
    return firstLike(pending) != number;
}

void ResourcePool::leaveQueue(Number number, Pending& pending) {
    if (!pending.queue) {
        return;
    }
    bool const wasFirst = firstLike(pending) == number;
    Wish const wish = *std::exchange(pending.queue, {});
    auto const next = mQueues.erase(mQueues.find({wish, number}));
    if (wasFirst && next != mQueues.end() && next->first == wish) {
        mUndecided.insert(next->second);
    }
}

/// Returns the request that decides for one that is in a queue.
ResourcePool::Number ResourcePool::firstLike(Pending const& pending) const {
    return mQueues.lower_bound({*pending.queue, 0})->second;
}

int ResourcePool::waitsFor(Number request) const {
    Pending const& pending = mPending.at(request);
    return pending.queue ? mPending.at(firstLike(pending)).waitsFor : pending.waitsFor;
}

/// Lets a request wait for a client's answer, or, when that is 0, for nobody's any longer.
void ResourcePool::waitFor(Number number, int holder) {
    int& current = mPending.at(number).waitsFor;
    mWaiters.erase({current, number});
    current = holder;
    if (holder != 0) {
        mWaiters.emplace(holder, number);
    }
}

void ResourcePool::wakeWaitersFor(int holder) {
    auto const waiters = numbersOf(mWaiters, holder);
    mUndecided.insert(waiters.begin(), waiters.end());
}

void ResourcePool::lookAtRequestsOf(int client) {
    auto const own = numbersOf(mRequests, client);
    mUndecided.insert(own.begin(), own.end());
}

void ResourcePool::dropRetired() {
    mCores.remove_if([](Core const& core) { return core.retired && core.holder == 0; });
}

/// Returns the reclaim that has been running the longest from a client, null when none runs.
ResourcePool::Reclaim const* ResourcePool::reclaimFrom(int client) const {
    auto const found = std::find_if(mReclaims.begin(), mReclaims.end(), [&](auto const& entry) {
        return entry.second.holder == client;
    });
    return found == mReclaims.end() ? nullptr : &found->second;
}

/// Says whether a client should have answered a reclaim by now.
bool ResourcePool::isStuck(int client) const {
    Reclaim const* const running = reclaimFrom(client);
    return running != nullptr && running->since + mPatience <= mNow();
}

/// Says whether a holder has not answered for long, or may not be asked yet.
bool ResourcePool::isSlow(Lease const& lease) const {
    Reclaim const* const running = reclaimFrom(lease.holder);
    return running == nullptr ? lease.grantedAt + mLeastHold > mNow()
                              : running->since + mPatience / 2 <= mNow();
}

/// Returns the clients that can, as far as is known, not answer a reclaim before `pending` has
/// ended: because that request, or one that waits for such a client, is their own or comes from
/// inside their callback. Nobody starts to wait in such a ring, so that there is none to follow.
std::set<int> ResourcePool::dependentsOn(Pending const& pending) const {
    std::set<int> dependents;
    std::vector<Pending const*> ends{&pending};
    while (!ends.empty()) {
        Pending const& end = *ends.back();
        ends.pop_back();
        auto const reclaim = mReclaims.find(end.insideReclaim);
        int const outer = reclaim == mReclaims.end() ? end.client : reclaim->second.holder;
        for (int const client : {end.client, outer}) {
            if (dependents.insert(client).second) {
                for (Number const number : numbersOf(mWaiters, client)) {
                    ends.push_back(&mPending.at(number));
                }
            }
        }
    }
    return dependents;
}

int ResourcePool::priorityOf(int client) const { return mClients.at(client).owner.priority; }

/// Calls `use` with each time at which a holder's answer is late, or it may be asked, and the
/// holder.
template <typename Use>
void ResourcePool::forDeadlines(Use const& use) const {
    for (auto const& [number, reclaim] : mReclaims) {
        use(reclaim.since + mPatience / 2, reclaim.holder);
        use(reclaim.since + mPatience, reclaim.holder);
    }
    for (Core const& core : mCores) {
        use(core.grantedAt + mLeastHold, core.holder);
    }
    for (Lease const& port : mPorts) {
        use(port.grantedAt + mLeastHold, port.holder);
    }
}

void ResourcePool::lookAtClock() {
    auto const now = mNow();
    forDeadlines([&](Clock::time_point time, int holder) {
        if (time > mLookedAt && time <= now) {
            wakeWaitersFor(holder);
        }
    });
    for (auto const& [number, pending] : mPending) {
        if (pending.since + mPatience > now) {
            break;  // As are all that are newer.
        }
        mUndecided.insert(number);
    }
    mLookedAt = now;
}

ResourcePool::Clock::time_point ResourcePool::nextDeadline() const {
    auto next =
        mPending.empty() ? Clock::time_point::max() : mPending.begin()->second.since + mPatience;
    forDeadlines([&](Clock::time_point time, int) {
        next = time > mLookedAt ? std::min(next, time) : next;
    });
    return next;
}

int ResourcePool::newReclaim(int holder, Number request, std::uint64_t takeFrom) {
    mLastReclaim =
        nextNumber(mLastReclaim, 1, [&](int number) { return mReclaims.count(number) != 0; });
    mReclaims.emplace(mLastReclaim, Reclaim{holder, request, takeFrom, mNow()});
    return mLastReclaim;
}

// --- What people read.

namespace {

/// A time in the largest unit that still tells something.
std::string inSeconds(ResourcePool::Clock::duration time) {
    double const seconds = std::chrono::duration<double>(time).count();
    std::ostringstream text;
    text << std::fixed;
    if (seconds < 600) {
        text << std::setprecision(1) << seconds << " s";
    } else {
        text << std::setprecision(0) << (seconds < 36000 ? seconds / 60 : seconds / 3600)
             << (seconds < 36000 ? " min" : " h");
    }
    return text.str();
}

void row(std::ostream& out, std::initializer_list<std::string> const& cells) {
    constexpr std::array<int, 8> kWidths{5, 4, 7, 9, 7, 13, 6, 8};
    constexpr std::size_t kLineWidth = 80;
    std::ostringstream line;
    std::size_t column = 0;
    for (std::string const& cell : cells) {
        bool const isLast = column + 1 == cells.size();
        auto const width = static_cast<std::size_t>(isLast ? 0 : kWidths.at(column));
        // A long program name is cut, and a long number moves what follows.
        line << std::left << std::setw(static_cast<int>(width))
             << (column == 5 ? cell.substr(0, width) : cell) << (isLast ? "" : " ");
        ++column;
    }
    out << line.str().substr(0, kLineWidth) << "\n";
}

std::string useOf(ResourcePool::Request const& request) {
    return request.display ? "port" : request.encoder ? "encoder" : "decoder";
}

std::string sizeOf(int width, int height) {
    return std::to_string(width) + "x" + std::to_string(height);
}

}  // namespace

std::string ResourcePool::describe() const {
    std::ostringstream out;
    auto const holderRow = [&](std::string const& number, std::string const& type,
                               std::string const& use, std::string const& size,
                               Lease const& lease) {
        auto const client = mClients.find(lease.holder);
        if (client == mClients.end()) {
            row(out, {number, type, use, size, "-"});
            return;
        }
        row(out, {number, type, use, size, std::to_string(client->second.owner.pid),
                  client->second.owner.program, std::to_string(client->first),
                  inSeconds(mNow() - lease.grantedAt), describeAnswers(client->first)});
    };
    row(out, {"CORE", "TYPE", "USE", "SIZE", "PROCESS", "PROGRAM", "CLIENT", "SINCE", "RECLAIM"});
    int number = 0;
    for (Core const& core : mCores) {
        holderRow(core.retired ? "old" : std::to_string(++number), std::to_string(core.core.type),
                  core.core.encoder ? "encoder" : "decoder",
                  sizeOf(core.core.maxWidth, core.core.maxHeight), core);
    }
    row(out, {"PORT", "", "", "", "PROCESS", "PROGRAM", "CLIENT", "SINCE", "RECLAIM"});
    number = 0;
    for (Lease const& port : mPorts) {
        holderRow(std::to_string(++number), "", "", "", port);
    }
    row(out, {"WAITS", "", "FOR", "SIZE", "PROCESS", "PROGRAM", "CLIENT", "SINCE", "ASKED"});
    for (auto const& [request, pending] : mPending) {
        auto const client = mClients.find(pending.client);
        if (client == mClients.end()) {
            continue;
        }
        bool const display = pending.request.display;
        row(out, {std::to_string(request), "", useOf(pending.request),
                  display ? "" : sizeOf(pending.request.width, pending.request.height),
                  std::to_string(client->second.owner.pid), client->second.owner.program,
                  std::to_string(client->first), inSeconds(mNow() - pending.since),
                  waitsFor(request) == 0 ? "" : std::to_string(waitsFor(request))});
    }
    out << mClients.size() << (mClients.size() == 1 ? " client is" : " clients are") << " open.\n";
    return out.str();
}

std::string ResourcePool::nameOf(int client) const {
    auto const known = mClients.find(client);
    std::string const name = "client " + std::to_string(client);
    return known == mClients.end()
               ? name
               : name + " of process " + std::to_string(known->second.owner.pid) + " (" +
                     known->second.owner.program + ")";
}

std::string ResourcePool::stuckClients() const {
    std::string text;
    for (auto const& [client, entry] : mClients) {
        if (isStuck(client)) {
            text += (text.empty() ? "" : ", ") + nameOf(client);
        }
    }
    return text;
}

std::string ResourcePool::describe(Step const& step) const {
    auto const held = holding(step.client);
    std::string const wish =
        useOf(step.wish) +
        (step.wish.display ? "" : " of " + sizeOf(step.wish.width, step.wish.height));
    if (step.reclaim != 0) {
        return nameOf(step.holder) + " is asked for " + wish + " for " + nameOf(step.client);
    }
    std::string const after = " after " + inSeconds(step.waited);
    if (step.code != 0) {
        std::string const silent = step.code == kStuck ? stuckClients() : "";
        return nameOf(step.client) + " gets no " + wish + after + ": " + std::to_string(step.code) +
               (silent.empty() ? "" : ", no answer from " + silent);
    }
    std::string const got = step.wish.display      ? std::to_string(held.port)
                            : held.core == nullptr ? "?"
                                                   : std::to_string(held.core->type);
    return nameOf(step.client) + " gets " + wish + ": " + (step.wish.display ? "port " : "type ") +
           got + (step.holder == 0 ? "" : " from " + nameOf(step.holder)) + after;
}

std::string ResourcePool::describeReclaim(int reclaim) const {
    auto const& running = mReclaims.at(reclaim);
    return nameOf(running.holder) + ", asked " + inSeconds(mNow() - running.since) + " ago,";
}

/// Says what there is to tell of a client's reclaims.
std::string ResourcePool::describeAnswers(int client) const {
    if (Reclaim const* const running = reclaimFrom(client)) {
        return (isStuck(client) ? "STUCK " : "asked ") + inSeconds(mNow() - running->since);
    }
    int const refusals = mClients.at(client).refusals;
    return refusals > 0 ? "refused " + std::to_string(refusals) : "";
}

}  // namespace kvo::host
