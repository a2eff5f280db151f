#include "host/ResourcePool.h"

#include <algorithm>
#include <iomanip>
#include <limits>
#include <sstream>
#include <utility>

namespace kvo::host {

// --- The policy. What a holder gives up goes to the request that it was asked for. What is free
// for another reason goes to the oldest request that it can serve and that has not just asked
// somebody.

/// Which cores can serve a request.
bool ResourcePool::fits(CodecCore const& core, Request const& request) {
    return request.codecType != 0 && core.encoder == request.encoder &&
           request.width <= core.maxWidth && request.height <= core.maxHeight;
}

/// Which of two free cores is given away: the smaller, to keep the larger for who needs it.
bool ResourcePool::fitsBetter(CodecCore const& left, CodecCore const& right) {
    auto const size = [](CodecCore const& core) {
        return std::int64_t{core.maxWidth} * core.maxHeight;
    };
    return size(left) < size(right);
}

/// Which of two holders is asked first: the one of lower priority, then who has held the longest.
bool ResourcePool::isAskedBefore(Lease const& left, Lease const& right) const {
    return std::pair(priorityOf(left.holder), left.since) <
           std::pair(priorityOf(right.holder), right.since);
}

/// Whom a request may ask at all: not itself, nobody of higher priority, nobody who has refused or
/// is overdue, nobody whose answer has to wait for this request. A request from inside a reclaim
/// may only ask those who held before that reclaim began: else two players that start anew whenever
/// they lose their core would take it from each other without end.
bool ResourcePool::mayAsk(Lease const& lease, Pending const& pending) const {
    if (lease.holder == 0 || lease.holder == pending.client || lease.since > pending.takeFrom ||
        pending.refused.count(lease.holder) != 0) {
        return false;
    }
    return priorityOf(lease.holder) <= priorityOf(pending.client) && !isStuck(lease.holder) &&
           !answerDependsOn(lease.holder, pending);
}

// --- What carries it out.

ResourcePool::ResourcePool(std::vector<CodecCore> const& cores, Clock::time_point (*now)())
    : mNow(now) {
    setCores(cores);
}

void ResourcePool::setCores(std::vector<CodecCore> const& cores) {
    for (Core& core : mCores) {
        core.retired = true;
    }
    dropRetired();
    for (CodecCore const& core : cores) {
        mCores.push_back({{}, core});
    }
}

int ResourcePool::openClient(std::string name, Owner owner, int above) {
    int client = std::max(mLastClient, above) + 1;
    while (isOpen(client) || reclaimFrom(client) != nullptr) {
        ++client;
    }
    if (above <= mLastClient) {
        mLastClient = client;  // One process's bound does not use up the ids of the others.
    }
    mClients.emplace(client, Client{std::move(name), std::move(owner)});
    return client;
}

bool ResourcePool::closeClient(int client) {
    giveBack(client);
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
            port = {};
        }
    }
    for (auto const& [number, reclaim] : mReclaims) {
        auto const asking = mPending.find(reclaim.request);
        if (reclaim.holder == client && asking != mPending.end()) {
            serve(asking->second);
        }
    }
}

int ResourcePool::request(int client, Request const& request, bool tryOnly, int insideReclaim) {
    auto const reclaim = mReclaims.find(insideReclaim);
    auto const takeFrom = reclaim == mReclaims.end() ? std::numeric_limits<std::uint64_t>::max()
                                                     : reclaim->second.takeFrom;
    mPending.emplace(
        ++mLastRequest,
        Pending{client, request, tryOnly, insideReclaim, takeFrom, false, 0, {}, mNow()});
    return mLastRequest;
}

ResourcePool::Step ResourcePool::advance(int request) {
    Pending& pending = mPending.at(request);
    pending.waitsFor = 0;
    serveInOrder();

    // Also when the holder has given up but is still in its callback: what the newcomer does next
    // must not surprise it there.
    if (Reclaim const* const asked = reclaimFor(request)) {
        pending.waitsFor = asked->holder;
        return {Step::Kind::kWait, 0, 0, asked->holder, asked->deadline};
    }
    if (!isOpen(pending.client)) {
        return finish(request, kInvalid);
    }
    if (pending.granted) {
        return finish(request, 0);
    }
    if (!isServable(pending.request)) {
        return finish(request, kUnsupported);
    }
    if (pending.tryOnly) {
        return finish(request, kBusy);
    }

    Lease const* first = nullptr;
    bool someoneIsStuck = false;
    for (Lease const* const lease : leases(pending.request)) {
        if (mayAsk(*lease, pending)) {
            first = first == nullptr || isAskedBefore(*lease, *first) ? lease : first;
        } else {
            someoneIsStuck = someoneIsStuck || isStuck(lease->holder);
        }
    }
    if (first == nullptr) {
        return finish(request, someoneIsStuck ? kStuck : kBusy);
    }
    pending.waitsFor = first->holder;
    if (Reclaim const* const running = reclaimFrom(first->holder)) {
        return {Step::Kind::kWait, 0, 0, running->holder, running->deadline};
    }
    int const reclaim = newReclaim(first->holder, request, std::min(mOrder, pending.takeFrom));
    return {Step::Kind::kReclaim, 0, reclaim, first->holder, mReclaims.at(reclaim).deadline};
}

int ResourcePool::startReclaim(int client) { return newReclaim(client, 0, mOrder); }

void ResourcePool::finishReclaim(int reclaim, bool gaveUp) {
    auto const ended = mReclaims.find(reclaim);
    if (ended == mReclaims.end()) {
        return;
    }
    int const holder = ended->second.holder;
    if (gaveUp) {
        giveBack(holder);  // While the reclaim still tells for whom.
    }
    mReclaims.erase(ended);
    if (!gaveUp && isOpen(holder)) {
        ++mClients.at(holder).refusals;
    }
    for (auto& [number, pending] : mPending) {
        if (pending.waitsFor == holder && reclaimFrom(holder) == nullptr) {
            pending.waitsFor = 0;
            if (!gaveUp) {
                pending.refused.insert(holder);
            }
        }
    }
}

bool ResourcePool::isServable(Request const& request) const {
    return request.display || std::any_of(mCores.begin(), mCores.end(), [&](Core const& core) {
               return !core.retired && fits(core.core, request);
           });
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
    for (auto& [number, pending] : mPending) {
        if (reclaimFor(number) == nullptr) {
            serve(pending);
        }
    }
}

/// Gives a request something that is free, if there is anything.
void ResourcePool::serve(Pending& pending) {
    if (!pending.granted && isOpen(pending.client)) {
        pending.granted = pending.request.display ? grantFreePort(pending.client)
                                                  : grantFreeCore(pending.client, pending.request);
    }
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
            (best == nullptr || fitsBetter(core.core, best->core))) {
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

void ResourcePool::grant(Lease& lease, int client) { lease = {client, ++mOrder, mNow()}; }

void ResourcePool::giveBackCore(int client) {
    for (Core& core : mCores) {
        if (core.holder == client) {
            static_cast<Lease&>(core) = {};
        }
    }
    dropRetired();
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

/// Returns the reclaim whose answer a request has a right to wait for, null when there is none.
ResourcePool::Reclaim const* ResourcePool::reclaimFor(int request) const {
    auto const found = std::find_if(mReclaims.begin(), mReclaims.end(), [&](auto const& entry) {
        return entry.second.request == request && entry.second.deadline > mNow();
    });
    return found == mReclaims.end() ? nullptr : &found->second;
}

/// Says whether a client should have answered a reclaim by now.
bool ResourcePool::isStuck(int client) const {
    Reclaim const* const running = reclaimFrom(client);
    return running != nullptr && running->deadline <= mNow();
}

/// Says whether a holder can, as far as is known, not answer a reclaim before `pending` has ended:
/// because that request, or one that waits for it, is the holder's own or comes from inside the
/// holder's callback. Nobody starts to wait in such a ring, so that there is none to follow.
bool ResourcePool::answerDependsOn(int holder, Pending const& pending) const {
    return std::any_of(mPending.begin(), mPending.end(), [&](auto const& entry) {
        Pending const& other = entry.second;
        return belongsTo(other, holder) &&
               (&other == &pending ||
                (other.waitsFor != 0 && answerDependsOn(other.waitsFor, pending)));
    });
}

bool ResourcePool::belongsTo(Pending const& pending, int client) const {
    auto const reclaim = mReclaims.find(pending.insideReclaim);
    return pending.client == client ||
           (reclaim != mReclaims.end() && reclaim->second.holder == client);
}

int ResourcePool::priorityOf(int client) const {
    auto const found = mClients.find(client);
    return found == mClients.end() ? 0 : found->second.owner.priority;
}

ResourcePool::Clock::time_point ResourcePool::nextDeadline() const {
    auto next = Clock::time_point::max();
    for (auto const& [number, reclaim] : mReclaims) {
        next = reclaim.deadline > mNow() ? std::min(next, reclaim.deadline) : next;
    }
    return next;
}

ResourcePool::Step ResourcePool::finish(int number, int code) {
    mPending.erase(number);
    return {Step::Kind::kFinished, code, 0, 0, {}};
}

int ResourcePool::newReclaim(int holder, int request, std::uint64_t takeFrom) {
    mReclaims.emplace(++mLastReclaim, Reclaim{holder, request, takeFrom, mNow() + kReclaimLimit});
    return mLastReclaim;
}

// --- What people read.

namespace {

std::string inSeconds(ResourcePool::Clock::duration time) {
    auto const elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(time);
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << static_cast<double>(elapsed.count()) / 1000
         << " s";
    return text.str();
}

void row(std::ostream& out, std::initializer_list<std::string> const& cells) {
    constexpr std::array<int, 8> kWidths{6, 6, 9, 11, 8, 18, 8, 10};
    std::ostringstream line;
    std::size_t column = 0;
    for (std::string const& cell : cells) {
        bool const isLast = column + 1 == cells.size();
        line << std::left << std::setw(isLast ? 0 : kWidths.at(column)) << cell
             << (isLast ? "" : " ");
        ++column;
    }
    out << line.str() << "\n";
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
                  inSeconds(mNow() - lease.grantedAt), describeReclaim(client->first)});
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
        row(out, {std::to_string(request), "",
                  display                   ? "port"
                  : pending.request.encoder ? "encoder"
                                            : "decoder",
                  display ? "" : sizeOf(pending.request.width, pending.request.height),
                  std::to_string(client->second.owner.pid), client->second.owner.program,
                  std::to_string(client->first), inSeconds(mNow() - pending.since),
                  pending.waitsFor == 0 ? "" : std::to_string(pending.waitsFor)});
    }
    out << mClients.size() << (mClients.size() == 1 ? " client is" : " clients are") << " open.\n";
    return out.str();
}

std::string ResourcePool::stuckClients() const {
    std::string text;
    for (auto const& [number, reclaim] : mReclaims) {
        auto const client = mClients.find(reclaim.holder);
        if (client != mClients.end() && isStuck(client->first)) {
            text += (text.empty() ? "client " : ", client ") + std::to_string(client->first) +
                    " of process " + std::to_string(client->second.owner.pid) + " (" +
                    client->second.owner.program + ")";
        }
    }
    return text;
}

/// Says what there is to tell of a client's reclaims.
std::string ResourcePool::describeReclaim(int client) const {
    std::string text;
    if (Reclaim const* const running = reclaimFrom(client)) {
        text = std::string(isStuck(client) ? "STUCK, asked " : "asked ") +
               inSeconds(mNow() - (running->deadline - kReclaimLimit)) + " ago";
    }
    int const refusals = mClients.at(client).refusals;
    if (refusals > 0) {
        text += (text.empty() ? "refused " : ", refused ") + std::to_string(refusals);
    }
    return text;
}

}  // namespace kvo::host
