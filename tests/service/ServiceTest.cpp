#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <deque>
#include <fstream>
#include <future>
#include <random>
#include <regex>
#include <sstream>

#include "Client.h"
#include "SystemUtils.h"
#include "host/HostPlatform.h"

// Runs with the service's libkvo_hal_crm on a bus of its own, and starts the service itself.
namespace {

using Clock = std::chrono::steady_clock;
using Words = std::vector<std::string>;
using std::chrono::milliseconds;
using std::chrono::seconds;

std::string const kCall =
    "busctl --user -- call kvo.tvhw.ResourceManager /kvo/tvhw/ResourceManager "
    "kvo.tvhw.ResourceManager1 ";
std::string gSelf;

/// What a command prints.
std::string output(std::string const& command) {
    FILE* const pipe = popen(command.c_str(), "r");
    std::string text;
    for (int byte = std::fgetc(pipe); byte != EOF; byte = std::fgetc(pipe)) {
        text += static_cast<char>(byte);
    }
    pclose(pipe);
    return text;
}

/// What the service's program prints, and its exit status.
std::string told(std::string const& arguments) {
    return output("{ " + (std::getenv("TVHW_SERVICE") + (" " + arguments)) + "; } 2>&1; echo $?");
}

void expect(std::string const& text, std::string const& part, std::string const& why = "") {
    EXPECT_NE(text.find(part), std::string::npos) << why << ": " << text;
}

class ServiceTest : public testing::Test {
protected:
    Words service(std::string const& setting = "") const {
        return {"env", setting.empty() ? "KVO_MEDIA_LOG_FILE=" + mLog : setting,
                "KVO_HOST_POOL=decoder:3:1920x1088,decoder:1:640x480",
                "KVO_HOST_POLICY=env=0,12345=-1", std::string(std::getenv("TVHW_SERVICE"))};
    }

    void start(Words const& words) {
        mService = nullptr;
        mService = std::make_unique<Process>(words);
        waitUntil([] { return Client().opened == 0; });
    }

    void SetUp() override {
        std::remove(mLog.c_str());
        start(service());
    }
    void TearDown() override { std::remove(mLog.c_str()); }

    /// A process that holds a core of this size.
    static std::unique_ptr<Process> holder(std::string const& behaviour, int width) {
        auto process =
            std::make_unique<Process>(Words{gSelf, "--hold", behaviour, std::to_string(width)});
        EXPECT_EQ(process->line(), "0");
        return process;
    }

    /// A bus whose address is mOtherBus.
    std::unique_ptr<Process> otherBus() const {
        auto bus = std::make_unique<Process>(
            Words{"dbus-daemon", "--session", "--nofork", "--print-address",
                  "--address=" + mOtherBus.substr(mOtherBus.find('=') + 1)});
        bus->line();
        return bus;
    }

    /// What the log says after the letter of its level, without what differs each time; clients
    /// are A, B and so on.
    std::string log() const {
        static std::regex const differs(
            R"(.* (. )ResourceManager: \S+ | of process \d+ \([^)]+\)|\d+\.\d s( ago)?)");
        std::ifstream file(mLog);
        std::string text = std::regex_replace(std::string(std::istreambuf_iterator<char>(file), {}),
                                              differs, "$1");
        std::smatch client;
        for (char name = 'A'; std::regex_search(text, client, std::regex("client \\d+")); ++name) {
            text = std::regex_replace(text, std::regex(client.str()), std::string(1, name));
        }
        return text;
    }

    /// The result of a request for the large core, once its holder has been asked.
    static std::future<int> takesFrom(Client const& holder) {
        auto result = std::async(std::launch::async, [] { return Client().acquire(1920); });
        waitUntil([&] { return holder.reclaims != 0; });
        return result;
    }

    std::string const mOwnFile = gSelf + "." + std::to_string(getpid());
    std::string const mLog = mOwnFile + ".log";
    std::string const mOtherBus = "DBUS_SESSION_BUS_ADDRESS=unix:path=" + mOwnFile + ".bus";
    std::unique_ptr<Process> mService;
};

// Though a child of it lives on.
TEST_F(ServiceTest, WhatADeadProcessHeldIsFreeAtOnce) {
    auto const first = holder("fork", 1920);
    EXPECT_EQ(first->line(), "-22 0") << "its client, and one of the child's own";
    auto const second = holder("die", 640);
    first->end(SIGKILL);
    auto const begin = Clock::now();
    Client newcomer;
    EXPECT_EQ(newcomer.acquire(1920), 0);
    Client other;
    auto const live = holder("keep", 1);  // Fits into no core that is free: asks and kills.
    EXPECT_TRUE(WIFSIGNALED(second->end()));
    EXPECT_EQ(other.acquire(640), 0);
    EXPECT_EQ(newcomer.reclaims, 1);
    EXPECT_LT(Clock::now() - begin, seconds(5)) << "nobody waits for the dead";
}

// Also one that the service has no descriptor left to watch.
TEST_F(ServiceTest, AProcessIsServedThoughDescriptorsAreUsedUp) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = 100;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    start(service());
    prlimit(mService->id(), RLIMIT_NOFILE, nullptr, &limit);
    EXPECT_EQ(limit.rlim_cur, limit.rlim_max);
    limit.rlim_cur = 4;
    ASSERT_EQ(prlimit(mService->id(), RLIMIT_NOFILE, &limit, nullptr), 0);
    auto const first = holder("give", 1920);
    first->end(SIGKILL);
    Client newcomer("keep");
    EXPECT_EQ(newcomer.acquire(1920), 0);
}

TEST_F(ServiceTest, AClientOfAReclaimsCallbackGetsAnAnswer) {
    auto const other = holder("give", 640);
    Client player("again");
    EXPECT_EQ(player.acquire(1920), 0);
    Client newcomer;
    EXPECT_EQ(newcomer.acquire(1920), 0);
    EXPECT_EQ(player.inside, -16);
}

TEST_F(ServiceTest, WithoutAServiceCallsFailAtOnceAndANewOneServesNewClients) {
    Client client("late");
    EXPECT_EQ(client.acquire(1920), 0);
    auto waits = takesFrom(client);
    mService->end(SIGKILL);
    EXPECT_EQ(waits.get(), -111);
    EXPECT_EQ(client.acquire(), -111);
    EXPECT_EQ(Client().opened, -111);
    EXPECT_FALSE(kvo::media::platform::SystemUtils::getInstance().allowsForcedAcquire(1));
    SetUp();
    EXPECT_EQ(client.acquire(), -22) << "the new service does not know it";
    Client newcomer("late");
    EXPECT_EQ(newcomer.acquire(1920), 0);
    EXPECT_EQ(TVHW_CRM_ClientFree(&client.handle), 0);
    waits = takesFrom(newcomer);
    client.isLate = false;
    std::this_thread::sleep_for(milliseconds(200));
    EXPECT_EQ(newcomer.core(), 3) << "neither an old handle nor an old answer is another client's";
    newcomer.isLate = false;
    EXPECT_EQ(waits.get(), 0);
}

TEST_F(ServiceTest, TheServiceDecidesForAllProcesses) {
    auto& utils = kvo::media::platform::SystemUtils::getInstance();
    EXPECT_TRUE(utils.allowsForcedAcquire(1));
    EXPECT_FALSE(utils.allowsForcedAcquire(12345));
    Process monitor({"dbus-monitor", "type='signal',interface='kvo.tvhw.ResourceManager1'"});
    while (monitor.line().find("member=NameLost") == std::string::npos) {
    }
    monitor.line();
    utils.onProcessReclaimed(12345);
    utils.onReclaimedClientReleased(54321);
    for (char const* const part : {"member=ProcessReclaimed", "int32 12345",
                                   "member=ReclaimedClientReleased", "int32 54321"}) {
        expect(monitor.line(), part);
    }
}

TEST_F(ServiceTest, ABusThatIsLostDuringAReclaimIsNoService) {
    auto bus = otherBus();
    auto words = service();
    words.insert(words.begin() + 1, mOtherBus);
    Words told{"sh", "-c", "exec \"$@\" 2>&1", "sh"};
    told.insert(told.end(), words.begin(), words.end());
    Process manager(told);
    auto const player = [&](char const* behaviour) {
        return std::make_unique<Process>(
            Words{"env", mOtherBus, gSelf, "--hold", behaviour, "1920"});
    };
    auto holder = player("lose");
    while (holder->line() != "0") {
        holder = player("lose");
    }
    auto const newcomer = player("give");
    EXPECT_EQ(holder->line(), "asked");
    bus->end(SIGKILL);
    EXPECT_EQ(newcomer->line(), "-111");
    EXPECT_EQ(manager.line(), "tvhw-resource-manager: the bus has ended");
    EXPECT_EQ(manager.end() >> 8, 1);
    bus = otherBus();
    Process const another(words);
    EXPECT_EQ(holder->line(), "open again");
}

// What another program on the bus could send.
TEST_F(ServiceTest, NonsenseIsAnsweredAndWhatIsNotOnesOwnIsRefused) {
    Client client;
    EXPECT_EQ(client.acquire(), 0);
    int id = 0;
    TVHW_CRM_ClientGetUniqueId(client.handle, &id);
    std::string const name = std::to_string(id);
    std::pair<std::string, std::string> const kCalls[] = {
        {"CloseClient i " + name, "i -22\n"},
        {"GiveBack i " + name, "i -22\n"},
        {"GetHolding i " + name, "iiiii -22 0 0 0 0\n"},
        {"Acquire ibbiiibi " + name + " 0 0 1 1 1 0 0", "i -22\n"},
        {"Acquire ibbiiibi 0 1 1 -1 -1 -1 1 99", "i -22\n"},
        {"Reclaim ib 0 1", "i -22\n"},
        {"OpenClient si " + std::string(257, 'x') + " 0", "ii -22 0\n"},
        {"CloseClient s x", ""},
        {"Nothing", ""}};
    for (auto const& [call, answer] : kCalls) {
        EXPECT_EQ(output(kCall + call + " 2>/dev/null"), answer) << call;
    }
    expect(output(kCall + "OpenClient si " + std::string(256, 'x') + " 2147483647"), "ii 0 ");
    EXPECT_EQ(Client().opened, 0);
    EXPECT_EQ(Client().opened, 0) << "no ids are left for others";
    EXPECT_EQ(TVHW_CRM_ClientInit(&client.handle, "\xff", Client::answer, 0, nullptr), -22);
    EXPECT_EQ(client.core(), 1);
}

// A third program on the bus says what only the bus or the holder may say.
TEST_F(ServiceTest, OnlyTheBusAndWhoIsAskedCount) {
    std::string const forge = std::string("python3 ") + std::getenv("TVHW_FORGE") + " ";
    EXPECT_EQ(output(forge + gSelf + " --open; echo $?"), "0\n");
    Client client("hang");
    EXPECT_EQ(client.acquire(1920), 0);
    int id = 0;
    TVHW_CRM_ClientGetUniqueId(client.handle, &id);
    std::string name = output("busctl --user list --no-legend --no-pager | awk '/^:/ && $2 == " +
                              std::to_string(getpid()) + " { print $1 }'");
    ASSERT_NE(name, "");
    name.pop_back();
    output("busctl --user call " + name +
           " /kvo/tvhw/ResourceClient kvo.tvhw.ResourceClient1 Reclaim ii " + std::to_string(id) +
           " 1 2>&1");
    output(
        "dbus-send --dest=kvo.tvhw.ResourceManager /org/freedesktop/DBus "
        "org.freedesktop.DBus.NameOwnerChanged string:" +
        name + " string:" + name + " string:");
    output("dbus-send --dest=" + name +
           " /org/freedesktop/DBus org.freedesktop.DBus.NameOwnerChanged "
           "string:kvo.tvhw.ResourceManager string: string:" +
           name);
    EXPECT_EQ(client.core(), 3);
    EXPECT_EQ(client.reclaims, 0);
    auto newcomer = takesFrom(client);
    output(kCall + "AnswerReclaim ii 1 1 2>&1");
    EXPECT_EQ(client.core(), 3);
    EXPECT_EQ(output(forge + name), "");
    EXPECT_EQ(newcomer.get(), -111) << "whoever has answered is not the service";
}

// A reader of its log that does not read, and then is gone: of its standard error, which can be
// opened anew or not, or of a file.
TEST_F(ServiceTest, TheServiceNeitherWaitsNorDiesForItsLog) {
    for (std::string const kind : {"pipe", "socket", "file"}) {
        int ends[2];
        ASSERT_EQ(kind == "socket" ? socketpair(AF_UNIX, SOCK_STREAM, 0, ends) : pipe(ends), 0);
        int const small = 4096;
        fcntl(ends[1], F_SETPIPE_SZ, small);
        setsockopt(ends[1], SOL_SOCKET, SO_SNDBUF, &small, sizeof(small));
        std::string const end = std::to_string(ends[1]);
        auto words = service("KVO_MEDIA_LOG_LEVEL=3");
        words.insert(words.begin(), {"bash", "-c", "exec \"$@\" 2>&" + end, "bash"});
        if (kind == "file") {
            words[2] = "KVO_MEDIA_LOG_FILE=/dev/fd/" + end + " exec \"$@\"";
        }
        fcntl(ends[0], F_SETFD, FD_CLOEXEC);
        start(words);
        EXPECT_EQ((fcntl(ends[1], F_GETFL) & O_NONBLOCK) != 0, kind == "socket") << "it is shared";
        for (bool const isRead : {true, false}) {
            for (int times = 0; times < 80; ++times) {
                EXPECT_EQ(Client().acquire(99999), -95);
            }
            if (isRead) {
                char text[8192];
                auto const length = static_cast<std::size_t>(read(ends[0], text, sizeof(text)));
                expect({text, length}, "99999x0 after 0.0 s: -95\n");
                close(ends[0]);
                close(ends[1]);
            }
        }
        EXPECT_EQ(Client().acquire(), 0);
        EXPECT_EQ(mService->end(SIGINT), 0);
    }
}

TEST_F(ServiceTest, TheLogTellsWhoGetsWhatFromWhom) {
    for (int times = 0; times < 200; ++times) {
        EXPECT_EQ(Client().acquire(99999), -95) << "no line, and none of those that are left";
    }
    auto const begin = Clock::now();
    EXPECT_EQ(told("--log-level 3"), "0\n");
    auto const first = holder("give", 1920);
    auto const second = holder("keep", 640);
    Client client;
    TVHW_CRM_ACQUIRE_PARAM request{1, 640, 0, 0, 0, 0, {}};
    EXPECT_EQ(TVHW_CRM_ClientTryAcquireResource(client.handle, &request), -16);
    EXPECT_EQ(client.acquire(), 0);
    auto const third = holder("die", 1920);
    EXPECT_EQ(client.acquire(1920), 0);
    EXPECT_EQ(log(),
              "D grant: A gets decoder of 1920x0: type 3 after \n"
              "D grant: B gets decoder of 640x0: type 1 after \n"
              "I refuse: C gets no decoder of 640x0 after : -16\n"
              "I reclaim: B is asked for decoder of 640x0 for C\n"
              "I reclaim: B, asked , keeps it\n"
              "I reclaim: A is asked for decoder of 640x0 for C\n"
              "I reclaim: A, asked , gives up\n"
              "D grant: C gets decoder of 640x0: type 3 from A after \n"
              "I reclaim: C is asked for decoder of 1920x0 for D\n"
              "I reclaim: C, asked , gives up\n"
              "D grant: D gets decoder of 1920x0: type 3 from C after \n"
              "I reclaim: D is asked for decoder of 1920x0 for C\n"
              "I reclaim: D, asked , gives up\n"
              "D grant: C gets decoder of 1920x0: type 3 from D after \n");
    for (int times = 0; times < 1000; ++times) {
        client.acquire(99999);
    }
    auto const time = std::chrono::duration_cast<seconds>(Clock::now() - begin);
    std::string const lines = log();
    auto const count = std::count(lines.begin(), lines.end(), '\n');
    EXPECT_GE(count, 100);
    EXPECT_LE(count, 100 * (time.count() + 2)) << "a flood of refusals is no flood of lines";
    expect(lines, "refuse: more lines of this second are left out\n");
}

TEST_F(ServiceTest, EachCallEndsThoughTheServiceIsStoppedAndLeavesNothing) {
    Client client;
    EXPECT_EQ(client.acquire(), 0);
    Client other;
    auto const begin = Clock::now();
    mService->signal(SIGSTOP);
    auto opened = std::async(std::launch::async, [] { return Client().opened; });
    EXPECT_EQ(other.acquire(), -111);
    EXPECT_EQ(opened.get(), -111);
    EXPECT_LT(Clock::now() - begin, seconds(16));
    mService->signal(SIGCONT);
    EXPECT_EQ(client.core(), 1) << "it has heard of nothing";
    EXPECT_EQ(other.acquire(), -22) << "it was closed";
    expect(kvo::host::describe(), "\n1 client is open.");
}

TEST_F(ServiceTest, AStoppedBusEndsTheFirstCall) {
    auto const bus = otherBus();
    bus->signal(SIGSTOP);
    auto const begin = Clock::now();
    Process player({"env", mOtherBus, gSelf, "--hold", "give", "1920"});
    Process service({"env", mOtherBus, std::getenv("TVHW_SERVICE")});
    EXPECT_EQ(player.line(), "-22") << "it has no client";
    EXPECT_TRUE(WIFSIGNALED(service.end(SIGTERM))) << "it is ended though it waits";
    EXPECT_LT(Clock::now() - begin, seconds(16));
    bus->signal(SIGCONT);
}

// What a person does at the keyboard.
TEST_F(ServiceTest, TheCommandShowsAndChangesWhatTheServiceDoes) {
    EXPECT_EQ(told("--log-level 2"), "0\n");
    std::string const odd = gSelf.substr(0, gSelf.rfind('/') + 1) + "\xff\x7f";
    std::remove(odd.c_str());
    ASSERT_EQ(link(gSelf.c_str(), odd.c_str()), 0);
    Process stuck({odd, "--hold", "hang", "1920"});
    EXPECT_EQ(stuck.line(), "0");
    std::remove(odd.c_str());
    auto const live = holder("keep", 640);
    std::istringstream held(told("--status | awk '$3 == \"decoder\" { print $7 }'"));
    std::string first;
    std::string second;
    held >> first >> second;
    auto const begin = Clock::now();
    auto refused = std::async(std::launch::async, [] { return Client().acquire(1920); });
    waitUntil([&] { return !log().empty(); });
    auto asks = std::async(std::launch::async, [&] { return told("--reclaim " + first); });
    std::pair<std::string, std::string> const kCommands[] = {
        {"", "tvhw-resource-manager: there is already a service on this bus\n1\n"},
        {"--nonsense", "see --help\n2\n"},
        {"--settings", "see --help\n2\n"},
        {"--reclaim 1x", "see --help\n2\n"},
        {"--reclaim 99999999999", "see --help\n2\n"},
        {"--log-level -2", "-2 is no number from -1 to 4; see --help\n2\n"},
        {"--log-level 99", "99 is no number from -1 to 4; see --help\n2\n"},
        {"--status", " ??    "},
        {"--watch | head -c 4", "CORE0\n"},
        {"--status >/dev/full", "tvhw-resource-manager: the output cannot be written\n1\n"},
        {"--reclaim 99", "tvhw-resource-manager: client 99 is not open\n1\n"},
        {"--reclaim " + second, " keeps what it holds\n1\n"},
        {"--status", "refused 1"},
        {"--status --json | python3 -m json.tool", "\"refusals\": 1"},
        {"--reclaim " + first, "tvhw-resource-manager: there was no answer for 10 seconds\n1\n"},
        {"--status", "STUCK 1"},
        {"--force " + first, "0\n"},
        {"--check /nowhere", "/nowhere: No such file or directory\n2\n"},
        {"--check /dev/zero", "/dev/zero: no regular file\n2\n"}};
    for (auto const& [arguments, part] : kCommands) {
        expect(told(arguments), part, arguments);
    }
    EXPECT_LT(Clock::now() - begin, seconds(20)) << "nobody waits for more than 10";
    EXPECT_NE(asks.get(), "0\n");
    EXPECT_EQ(refused.get(), -110);
    EXPECT_EQ(log(),
              "I reclaim: A is asked for decoder of 1920x0 for B\n"
              "I reclaim: C is asked for all that it holds\nI reclaim: C, asked , keeps it\n"
              "W refuse: B gets no decoder of 1920x0 after : -110, no answer from A\n"
              "W reclaim: A loses by force what it holds\n");
    EXPECT_EQ(output("ls /proc/" + std::to_string(stuck.id()) + "/task | wc -l"), "3\n")
        << "it is asked once: a thread each for itself, the bus and that";
    Client newcomer;
    EXPECT_EQ(newcomer.acquire(1920), 0);
    std::string const seen = output(
        "f=$(mktemp); timeout 60 script -qfc \"$TVHW_SERVICE --watch\" $f >/dev/null & "
        "while kill -0 $! && [ $(grep -c '\\[H' $f) -lt 2 ]; do sleep 0.1; done; "
        "kill $!; cat $f; rm $f");
    EXPECT_NE(seen.find("\033[H", seen.find("CLIENT")), std::string::npos) << seen;
    EXPECT_EQ(
        output(std::string("script -qc '") + std::getenv("TVHW_SERVICE") + " --status' /dev/null")
            .find("\033[H"),
        std::string::npos);
    mService = nullptr;
    EXPECT_EQ(told("--status"), "tvhw-resource-manager: there is no service on this bus\n1\n");
    for (std::string const address : {"unix:path=/nowhere", "nonsense"}) {
        EXPECT_EQ(output("DBUS_SESSION_BUS_ADDRESS=" + address + " " + std::getenv("TVHW_SERVICE") +
                         " 2>&1"),
                  "tvhw-resource-manager: there is no session bus; dbus-run-session starts one\n");
    }
}

TEST_F(ServiceTest, SettingsAreReadAnewAndNoGrantIsLost) {
    std::string const file = gSelf + ".settings";
    auto const write = [&](std::string const& text) { std::ofstream(file) << text; };
    write("# Nothing\n\nKVO_HOST_POOL=decoder:4:1920x1088\nKVO_HOST_LEAST_HOLD=x\n");
    EXPECT_EQ(told("--check " + file),
              "tvhw-resource-manager: " + file +
                  ":4: KVO_HOST_LEAST_HOLD=x: allowed are milliseconds from 0 to 9999\n2\n");
    EXPECT_EQ(told("--settings " + file), told("--check " + file)) << "it does not even begin";
    write("KVO_HOST_POOL=decoder:4:1920x1088\nKVO_HOST_POLICY=*=-1\n");
    auto words = service();
    words.insert(words.end(), {"--settings", file});
    start(words);
    Client client;
    EXPECT_EQ(client.acquire(), 0);
    EXPECT_EQ(client.core(), 4);
    auto& utils = kvo::media::platform::SystemUtils::getInstance();
    EXPECT_FALSE(utils.allowsForcedAcquire(1));
    EXPECT_EQ(told("--log-level 0"), "0\n");
    write("nonsense");
    mService->signal(SIGHUP);
    waitUntil([&] { return log().find("; the old settings stay\n") != std::string::npos; });
    EXPECT_EQ(client.core(), 4);
    write(
        "KVO_HOST_POOL=decoder:4:1920x1088,decoder:2:1920x1088\nKVO_HOST_POLICY=*=1\n"
        "KVO_HOST_LEAST_HOLD=9999\n");
    mService->signal(SIGHUP);
    waitUntil([&] { return utils.allowsForcedAcquire(1); });
    expect(told("--status --json"), "\"priority\": 1");
    Client other;
    EXPECT_EQ(other.acquire(), 0);
    EXPECT_EQ(other.core(), 2);
    auto third = std::async(std::launch::async, [] { return Client().acquire(); });
    EXPECT_EQ(third.wait_for(milliseconds(200)), std::future_status::timeout);
    EXPECT_EQ(client.reclaims + other.reclaims, 0) << "they have not held for long";
    EXPECT_EQ(client.core(), 4);
    TVHW_CRM_ClientReleaseResource(client.handle);
    EXPECT_EQ(third.get(), 0);
    std::remove(file.c_str());
}

// Each process has ten clients.
TEST_F(ServiceTest, ManyProcessesOfWhichSomeAreKilledLeaveNothing) {
    start({std::getenv("TVHW_SERVICE")});
    constexpr int kSeconds = 20;
    std::minstd_rand random;
    auto const pages = [&] {
        return std::stol(
            output("cut -d' ' -f2 /proc/" + std::to_string(mService->id()) + "/statm"));
    };
    auto const begin = [&](int rest) {
        return std::make_unique<Process>(
            Words{gSelf, "--use", std::to_string(random()), std::to_string(rest)});
    };
    std::vector<std::unique_ptr<Process>> processes(20);
    for (auto& process : processes) {
        process = begin(kSeconds);
    }
    long early = 0;
    for (int half = 1; half < 2 * kSeconds - 1; ++half) {
        std::this_thread::sleep_for(milliseconds(500));
        processes[random() % processes.size()] = begin(std::max(kSeconds - half / 2, 1));
        early = half == 10 ? pages() : early;
    }
    for (auto& process : processes) {
        EXPECT_EQ(process->end(), 0);
    }
    expect(kvo::host::describe(), "\n0 clients are open.");
    EXPECT_LE(pages(), early + early / 4 + 256) << "but for the allocator's slack it is given back";
}

/// One of its processes: each client on a thread of its own.
int use(unsigned int seed, int rest) {
    std::atomic<int> failures{0};
    auto const end = Clock::now() + seconds(rest);
    std::vector<std::thread> threads;
    // Never destroyed: what asks a client may still be under way when it is closed.
    static auto& clients = *new std::array<std::deque<Client>, 10>;
    for (unsigned int number = 0; number < clients.size(); ++number) {
        threads.emplace_back([&, number] {
            std::minstd_rand random(seed + number + 1);
            while (Clock::now() < end) {
                auto& client = clients[number].emplace_back(random() % 8 == 0 ? "keep" : "give");
                int const type = random() % 4 == 0 ? TVHW_CRM_CODEC_TYPE_DISPLAY : 1;
                int const result = client.acquire(640, type);
                failures += result != 0 && result != -16 ? 1 : 0;
                std::this_thread::sleep_for(milliseconds(random() % 20));
                failures += TVHW_CRM_ClientReleaseResource(client.handle) == 0 ? 0 : 1;
                TVHW_CRM_ClientFree(&client.handle);
                client.handle = nullptr;
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    return failures == 0 ? 0 : 1;
}

/// The child process of holder().
int hold(std::string const& behaviour, int width) {
    Client client(behaviour);
    std::printf("%d\n", client.acquire(width));
    std::fflush(stdout);
    if (behaviour == "fork" && fork() == 0) {
        int const inherited = client.core();
        std::printf("%d %d\n", inherited, Client().opened);
        std::fflush(stdout);
        sleep(60);
        _exit(0);
    }
    waitUntil([&] { return behaviour == "lose" && client.reclaims != 0; });
    client.waitForLoss();
    waitUntil([] { return Client().opened == 0; });  // Meanwhile the answer goes nowhere.
    std::puts("open again");
    return 0;
}

}  // namespace

int main(int count, char** arguments) {
    gSelf = arguments[0];
    if (count == 4 && std::string(arguments[1]) == "--hold") {
        return hold(arguments[2], std::atoi(arguments[3]));
    }
    if (count == 4 && std::string(arguments[1]) == "--use") {
        return use(static_cast<unsigned int>(std::atoi(arguments[2])), std::atoi(arguments[3]));
    }
    if (count == 2 && std::string(arguments[1]) == "--open") {
        alarm(10);
        waitUntil([] { return Client().opened == 0; });
        return 0;
    }
    testing::InitGoogleTest(&count, arguments);
    return RUN_ALL_TESTS();
}
