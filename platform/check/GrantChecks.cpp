// The resource manager: its clients, and what they are granted and give back.

#include <algorithm>
#include <set>
#include <string>

#include "ManagerClients.h"

namespace kvo::check {

namespace {

Outcome init() {
    Client const client;
    return areRight({{"result", client.opened}, {"handle is null", client.handle == nullptr}});
}

Outcome frees() {
    Client client;
    return areRight({{"init", client.opened}, {"free", client.free()}});
}

Outcome mimeTypes() {
    Values types;
    std::string lacking;
    bool isWell = true;
    for (std::string const mime : kMimeTypes) {
        int const type = CALL(TVHW_CRM_CodecTypeFromMIME)(mime.c_str());
        int const again = CALL(TVHW_CRM_CodecTypeFromMIME)(std::string(mime).c_str());
        types.emplace_back(mime.empty() ? "none" : mime, type, again);
        isWell = isWell && type >= 0 && type != TVHW_CRM_CODEC_TYPE_DISPLAY &&
                 (type == 0 || !mime.empty());
        lacking += type == 0 && !mime.empty() ? " " + mime : "";
    }
    bool const isAvc = types[0].came > 0 && types[0].came != types[1].came;
    types.emplace_back("wrong", !isWell || !isAvc);
    return areRight(types, ", the chip lacks:" + (lacking.empty() ? " none" : lacking));
}

Outcome decoderCore() {
    if (gLacking.decoder != 0) {
        return skipped("the chip decodes nothing, as --no-decoder says");
    }
    Client client;
    int const acquired = client.acquire();
    auto const held = client.held();
    auto const again = client.held();
    if (isLacking(acquired) && held.result != 0) {
        return skipped("the chip decodes nothing, as the manager's -95 says");
    }
    Client other(0);  // A core may come with a port, but not two with the same one.
    int const otherPort =
        other.tryAcquire() == 0 ? other.held().resource.videoPort : TVHW_CRM_VIDEO_PORT_NONE;
    bool const isItsPort =
        held.resource.videoPort < 1 || (held.isPort() && held.resource.videoPort != otherPort);
    return areRight({{"request", acquired},
                     {"is a core that fits", held.isFor(kWidth, kHeight), 1},
                     {"another core's port", otherPort, Value::kAny},
                     {"has its own", isItsPort, 1},
                     {"the same again", again.text() == held.text(), 1}},
                    ", " + held.text());
}

/// A chip with fewer than two decoder cores may do without an encoder.
Outcome encoderCore() {
    if (gLacking.encoder != 0) {
        return skipped("the chip encodes nothing, as --no-encoder says");
    }
    std::string came;
    bool isAllLacking = true;
    for (std::string const mime : {"video/avc", "video/x-vnd.on2.vp8"}) {
        Client client;
        int const acquired = client.acquire(coreRequest(mime.c_str(), true));
        auto const held = client.held();
        came += mime + ": " + text({{"request", acquired}}) + ", " + held.text() + "; ";
        if (acquired == 0) {
            return outcome(held.isFor(kWidth, kHeight), came);
        }
        isAllLacking = isAllLacking && isLacking(acquired) && held.result != 0;
    }
    return isAllLacking || countFree(core) < 2
               ? skipped("the chip encodes nothing, it seems: " + came)
               : outcome(false, came + "or say --no-encoder");
}

/// A core is one for what was asked, whatever the codec and the size; if not, it is refused.
Outcome grantsFit() {
    Client first;
    if (first.acquire() != 0) {
        return noneOf(core);
    }
    auto const most = first.held().resource;
    first.free();
    std::string wrong;
    int granted = 0;
    auto const ask = [&](std::string const& mime, int width, int height) {
        Client client;
        auto const request = coreRequest(mime.c_str(), false, width, height);
        if (request.codecType == 0) {
            return kSilent;
        }
        int const result = client.acquire(request);
        auto const held = client.held();
        granted += result == 0 ? 1 : 0;
        if (result == 0 ? !held.isFor(width, height) : held.result == 0) {
            wrong += "; wrong: " + mime + " " + std::to_string(width) + "x" +
                     std::to_string(height) + ": " + text({{"request", result}}) + ", " +
                     held.text();
        }
        return result;
    };
    for (char const* const mime : kMimeTypes) {
        ask(mime, kWidth, kHeight);
        ask(mime, 1922, 1084);
    }
    ask("video/avc", 30002, kHeight);
    ask("video/avc", kWidth, 20002);
    ask("video/avc", 0x10000 + kWidth, kHeight);  // As small as ever, in 16 bits.
    ask("video/avc", kWidth, 0x10000 + kHeight);
    if (std::max(most.maxWidth, most.maxHeight) < 30000) {
        ask("video/avc", most.maxWidth + 2, kHeight);
        ask("video/avc", kWidth, most.maxHeight + 2);
    }
    int const widest = ask("video/avc", most.maxWidth, kHeight);
    int const highest = ask("video/avc", kWidth, most.maxHeight);
    return areRight({{"granted", granted, Value::kAny},
                     {"at the first core's width", widest},
                     {"at its height", highest},
                     {"wrong", !wrong.empty()}},
                    wrong);
}

Outcome getsNothing() {
    Client const client;
    auto const held = client.held();
    return areRight({{"init", client.opened},
                     {"get", held.result, Value::kAny},
                     {"is an error", held.result != 0, 1}});
}

Outcome releasesNothing() {
    Client idle;
    Client client;
    client.acquire();
    return areRight({{"new", idle.release()},
                     {"again", idle.release()},
                     {"with a core", client.release()},
                     {"after it", client.release()}});
}

/// Lets a client of those that hold all give back with `giveBack`, while all others refuse to give
/// up theirs: another that opens gets what it held, nobody being asked.
Outcome givesBack(Acquire acquire, int (Client::*giveBack)()) {
    std::size_t const free = countFree(acquire);
    auto holders = holdAll(0, acquire);
    if (free == 0) {
        return noneOf(acquire);
    }
    if (holders.size() < free) {
        return outcome(false, text({{"free at first", free}, {"free again", holders.size()}}));
    }
    Client& first = *holders[holders.size() / 2];
    int const result = (first.*giveBack)();
    int const described = first.held().result;
    Client newcomer;
    int const request = acquire(newcomer);
    auto const held = newcomer.held();
    std::size_t keep = 0;
    for (auto const& holder : holders) {
        auto const its = holder->held();
        bool const isShared = acquire == port && its.resource.videoPort == held.resource.videoPort;
        keep += isGranted(its, acquire) && !isShared ? 1U : 0U;
    }
    return areRight({{"result", result},
                     {"newcomer's request", request},
                     {"asked", asked(holders)},
                     {"others without theirs", holders.size() - 1 - keep},
                     {"still described", described == 0},
                     {"granted", isGranted(held, acquire), 1}},
                    ", newcomer: " + held.text());
}

/// With display ports another client holds one of two every now and then, and the client a core.
Outcome givesBackEachTime(Acquire acquire) {
    bool const isForTwo = acquire == port && countFree(port) > 1;
    auto const once = [&](int round) {
        Client other(0);
        if (isForTwo && round % 4 >= 2) {
            other.acquirePort();
        }
        Client next(0);
        if (acquire == port && round % 3 == 0) {
            next.acquire();
        }
        int const result = acquire(next);
        return Values{{"request", result},
                      {"release", result != 0 || round % 2 == 0 ? 0 : next.release()}};
    };
    int const first = static_cast<int>(once(0).front().came);
    return isLacking(first) || (first != 0 && acquire != port) ? noneOf(acquire) : manyTimes(once);
}

/// The port goes first to whom the core came second, so that no core has its port's number.
Outcome coreAndPort() {
    Clients clients;
    for (int each = 0; each < 2; ++each) {
        clients.push_back(std::make_unique<Client>(0));
        if (clients.back()->acquire() != 0) {
            clients.pop_back();
        }
    }
    if (clients.empty()) {
        return noneOf(core);
    }
    std::reverse(clients.begin(), clients.end());
    std::string came;
    bool isWell = true;
    std::set<int> ports;
    for (auto const& client : clients) {
        auto const before = client->held();
        int const result = client->acquirePort();
        if (isLacking(result)) {
            return noneOf(port);
        }
        auto held = client->held();
        came += "core alone: " + before.text() + "; " + text({{"port's request", result}}) + ", " +
                held.text() + "; ";
        bool const isPort =
            result == 0 && held.isPort() && ports.insert(held.resource.videoPort).second;
        bool const isCore = held.isFor(kWidth, kHeight);
        held.resource.videoPort = before.resource.videoPort;
        isWell = isWell && isCore && held.text() == before.text() &&
                 (isPort || (result != 0 && !ports.empty()));
    }
    return outcome(isWell, came);
}

Outcome keepsPort() {
    std::size_t const count = countFree(port);
    Client first(0);
    int const result = first.acquirePort();
    if (isLacking(result)) {
        return noneOf(port);
    }
    int const again = first.acquirePort();
    auto const held = first.held();
    std::size_t const others = countFree(port);
    return areRight({{"request", result},
                     {"again", again, Value::kAny},
                     {"ports", count, Value::kAny},
                     {"not left for others", count - 1 - others},
                     {"is a port", held.isPort(), 1}},
                    ", " + held.text());
}

Outcome clearPorts() {
    bool const hasSecond = countFree(port) > 1;
    Client owner(0);
    owner.acquirePort();
    Client client;
    bool const hasCore = client.acquire() == 0;
    Client idle;
    return areRight(
        {{"port 0", client.clear(TVHW_CRM_VIDEO_PORT_0)},
         {"port 1", hasSecond ? client.clear(TVHW_CRM_VIDEO_PORT_1) : 0},
         {"both", client.clear(TVHW_CRM_VIDEO_PORT_ALL)},
         {"both again", client.clear(TVHW_CRM_VIDEO_PORT_ALL)},
         {"core lost", hasCore && !client.held().isCore()},
         {"both, by a client that holds nothing", idle.clear(TVHW_CRM_VIDEO_PORT_ALL)}});
}

Outcome uniqueIds() {
    std::array<Client, 3> clients;
    std::set<int> ids;
    Values values;
    for (auto& client : clients) {
        int const id = client.id();
        client.tryAcquire();
        client.acquirePort();
        values.emplace_back("id", id, Value::kAny);
        values.emplace_back("again", client.id(), id);
        values.emplace_back("differs", id != -1 && ids.insert(id).second, 1);
    }
    return areRight(values);
}

Outcome tryForm() {
    if (countFree(core) == 0) {
        return noneOf(core);
    }
    Client client;
    int const result = client.tryAcquire();
    auto const held = client.held();
    return areRight({{"request", result}, {"fits", held.isFor(kWidth, kHeight), 1}},
                    ", " + held.text());
}

/// First nobody gives up anything; then all cores are held, and given up at once.
Outcome threads() {
    std::atomic<int> refused{0};
    std::atomic<int> wrong{0};
    std::atomic<int> slow{0};
    std::array<std::atomic<int>, 3> owners{};  // Of the ports.
    Client first(0);
    int const here = first.acquire();
    int const there = onAnotherThread([&] { return first.acquire(); });
    bool const isTold = onAnotherThread([&] { return first.held().isCore(); });
    first.free();
    inFourThreads([&](int number) {
        for (int round = 0; round < 25; ++round) {
            Client client(0);
            auto const request = coreRequest(kMimeTypes[number], false, 640 + 2 * number);
            int const result = client.acquire(request);
            auto const held = client.held();
            refused += result == 0 ? 0 : 1;
            client.acquirePort();
            auto const withPort = client.held();
            auto& owner =
                owners[withPort.isPort() ? static_cast<unsigned>(withPort.resource.videoPort) : 0];
            bool const isShared = owner++ > 0 && withPort.isPort();
            int const id = client.id();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));  // Others meet it now.
            --owner;
            bool const isRight =
                client.opened == 0 && !isShared && client.id() == id &&
                coreRequest(kMimeTypes[number], false).codecType == request.codecType &&
                (result == 0) == (held.result == 0) &&
                (result != 0 || held.isFor(request.width, kHeight)) && client.release() == 0 &&
                client.held().result != 0 && client.free() == 0;
            wrong += isRight ? 0 : 1;
        }
    });
    auto const holders = holdAll(1);
    inFourThreads([&](int) {
        std::unique_ptr<Client> clients[2];
        for (int round = 0; round < 10 && slow == 0; ++round) {
            clients[round % 2] = std::make_unique<Client>();
            auto const start = std::chrono::steady_clock::now();
            clients[round % 2]->acquire();
            slow += std::chrono::steady_clock::now() - start < std::chrono::seconds(8) ? 0 : 1;
        }
    });
    return areRight({{"another thread's request", there, here},
                     {"told to another thread", isTold, here == 0},
                     {"rounds of 100 refused", refused.load(), Value::kAny},
                     {"wrong", wrong.load()},
                     {"not answered in 8 s", slow.load()}});
}

}  // namespace

Checks grantChecks() {
    return {
        {kMust, "init-writes-a-handle", "TVHW_CRM_ClientInit", "0 and a handle that is not null",
         init},
        {kMust, "free-succeeds", "a client is opened and freed, whatever that leaves in the handle",
         "0 twice", frees},
        {kMust, "mime-types-are-known",
         "TVHW_CRM_CodecTypeFromMIME, twice for each type that a decoder asks for, and none",
         "above 0 for avc and what else the chip has, another for hevc than avc, 0 for none",
         mimeTypes},
        {kMust, "a-core-is-granted-and-described",
         "a client asks for a video/avc core, 634x358 at 25, and what it holds",
         "0 twice, a core of 1 to 4 that fits, no port of another core; or --no-decoder",
         decoderCore},
        {kShould, "an-encoder-core-is-granted",
         "clients ask for encoder cores, video/avc and video/x-vnd.on2.vp8, 634x358 at 25",
         "0 for one of them, a core of 1 to 4, at least as large; or --no-encoder", encoderCore},
        {kMust, "a-grant-fits-the-request",
         "a core is asked for by each MIME type and in other sizes, some above the first one's",
         "a core that bears it, or a refusal with nothing held; what the first bears is granted",
         grantsFit},
        {kMust, "get-fails-when-nothing-is-held", "a new client asks what it holds", "an error",
         getsNothing},
        {kMust, "releasing-nothing-succeeds",
         "a new client releases twice, and one that held a core", "0 each time", releasesNothing},
        {kMust, "release-gives-back",
         "of clients that hold all cores and refuse, one releases; another opens and asks",
         "0, an error for what is held, and 0 and a core for the newcomer, nobody asked",
         [] { return givesBack(core, &Client::release); }},
        {kMust, "free-gives-back", "the same, but one is freed",
         "0, and 0 and a core for the newcomer, nobody asked",
         [] { return givesBack(core, &Client::free); }},
        {kMust, "release-gives-the-port-back", "as release-gives-back, with display ports",
         "as there", [] { return givesBack(port, &Client::release); }},
        {kMust, "free-gives-the-port-back", "as free-gives-back, with display ports", "as there",
         [] { return givesBack(port, &Client::free); }},
        {kMust, "cores-are-given-back-each-time",
         "100 to 1000 times a core by a new client, freed, or released and freed",
         "0, and no descriptor, thread or 64 KB kept each time",
         [] { return givesBackEachTime(core); }},
        {kMust, "ports-are-given-back-each-time",
         "the same with display ports, each third time after a core", "as there",
         [] { return givesBackEachTime(port); }},
        {kMust, "encoders-are-given-back-each-time", "the same with encoder cores", "as there",
         [] { return givesBackEachTime(encoder); }},
        {kMust, "a-core-and-a-port-at-once",
         "two clients ask for a core, then for a display port; nobody gives up anything",
         "0, and of the ports 1 and 2 one each or a refusal for the second; the cores as before",
         coreAndPort},
        {kMust, "a-client-keeps-its-port",
         "a client asks for a display port twice, then others for the ports that are left",
         "one port for it, whatever the second answer, and each other port for another client",
         keepsPort},
        {kMust, "ports-are-cleared",
         "another holds a port; clients with a core and without clear port 0, 1 and both",
         "0 each time, and the core is still held", clearPorts},
        {kMust, "ids-are-unique",
         "three clients' ids, before and after requests for a core and a port",
         "three ids that differ, the same afterwards, and none of -1", uniqueIds},
        {kMust, "a-try-grants-what-is-free",
         "TVHW_CRM_ClientTryAcquireResource while a core is free",
         "0 and a core that is at least as large", tryForm},
        {kMust, "threads-do-not-meet",
         "four threads' clients ask for all there is, nobody gives up; then all do; another thread "
         "asks, too",
         "a core that fits or nothing, a port of one's own, ids and types as before, within 8 s",
         threads},
    };
}

}  // namespace kvo::check
