#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <functional>
#include <future>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "SystemUtils.h"
#include "tvhw_crm.h"
#include "tvhw_vbe.h"
#include "tvhw_vo.h"
#include "tvhw_vsc.h"

// What the library relies on, asked of whatever platform is loaded; docs/porting.md tells the rest.
namespace {

constexpr char kHelp[] =
    "Usage: tvhw-platform-check [--list | NAME...]\n"
    "\n"
    "Checks that the platform's libraries do what the media library relies on: all checks, or "
    "those\n"
    "named. Needs a platform on which nothing else plays. Prints for each what was expected and\n"
    "what came. Exits with 0 when all came out as expected, 1 when not, 2 for an unknown name.\n";

constexpr unsigned int kHangSeconds = 25;
constexpr std::chrono::seconds kPatience{2};
constexpr int kSilent = -999;

using kvo::media::platform::SystemUtils;

/// Clients by their cookies. A cookie is a number, as the library's are: one that comes back
/// changed, or late, leads nowhere.
struct Client;
std::mutex gMutex;
std::condition_variable gIdle;  ///< A callback has ended.
std::map<std::uintptr_t, Client*> gClients;
std::uintptr_t gLastCookie = 0;
std::atomic<int> gForgotten{0};  ///< Callbacks for clients that are gone.

/// A client, and what its reclaim callback does.
struct Client {
    TVHW_CRM_HANDLE handle = nullptr;
    std::atomic<int> reclaims{0};
    std::atomic<int> insideResult{0};
    std::thread::id thread;
    std::function<int(Client&)> inside;
    std::unique_ptr<Client> successor;  ///< That a callback has opened.
    std::future<int> otherThread;       ///< Of a callback that has another thread call the manager.
    int answer = 1;
    std::uintptr_t cookie = 0;
    int running = 0;  ///< Callbacks.
    int opened;

    Client() : cookie(enter(*this)), opened(open()) {}
    Client(Client const&) = delete;
    Client& operator=(Client const&) = delete;
    ~Client() {
        if (handle != nullptr) {
            TVHW_CRM_ClientFree(&handle);
        }
        {
            std::lock_guard<std::mutex> const lock(gMutex);
            gClients.erase(cookie);
        }
        waitUntilIdle();
    }

    void waitUntilIdle() {
        std::unique_lock<std::mutex> lock(gMutex);
        gIdle.wait(lock, [this] { return running == 0; });
    }

    static std::uintptr_t enter(Client& client) {
        std::lock_guard<std::mutex> const lock(gMutex);
        gClients[++gLastCookie] = &client;
        return gLastCookie;
    }

    int open() {
        return TVHW_CRM_ClientInit(&handle, "check", reclaimed, 0, reinterpret_cast<void*>(cookie));
    }

    static int reclaimed(TVHW_CRM_RECLAIM_PARAM const*, void* cookie) {
        std::unique_lock<std::mutex> lock(gMutex);
        auto const found = gClients.find(reinterpret_cast<std::uintptr_t>(cookie));
        if (found == gClients.end()) {
            ++gForgotten;
            return 1;
        }
        Client& client = *found->second;
        ++client.running;
        lock.unlock();
        client.thread = std::this_thread::get_id();
        ++client.reclaims;
        if (client.inside) {
            client.insideResult = client.inside(client);
        }
        lock.lock();
        int const answer = client.answer;
        --client.running;
        gIdle.notify_all();
        return answer;
    }

    /// Lets another thread call the manager. Returns what it answers, kSilent when that takes too
    /// long.
    int callFromOtherThread(std::function<int()> call) {
        otherThread = std::async(std::launch::async, std::move(call));
        bool const isBack = otherThread.wait_for(kPatience) == std::future_status::ready;
        return isBack ? otherThread.get() : kSilent;
    }

    int acquire(bool tryOnly = false) {
        TVHW_CRM_ACQUIRE_PARAM request{};
        request.codecType = TVHW_CRM_CodecTypeFromMIME("video/avc");
        request.width = 640;
        request.height = 480;
        return tryOnly ? TVHW_CRM_ClientTryAcquireResource(handle, &request)
                       : TVHW_CRM_ClientAcquireResource(handle, &request);
    }

    int acquirePort() {
        TVHW_CRM_ACQUIRE_PARAM request{};
        request.codecType = TVHW_CRM_CODEC_TYPE_DISPLAY;
        return TVHW_CRM_ClientAcquireResource(handle, &request);
    }

    TVHW_CRM_RESOURCE held(int* result = nullptr) const {
        TVHW_CRM_RESOURCE resource{};
        int const code = TVHW_CRM_ClientGetResource(handle, &resource);
        if (result != nullptr) {
            *result = code;
        }
        return resource;
    }
};

/// Clients that hold every core that fits, and answer a reclaim with `answer`.
std::vector<std::unique_ptr<Client>> holdAll(int answer) {
    std::vector<std::unique_ptr<Client>> holders;
    do {
        holders.push_back(std::make_unique<Client>());
        holders.back()->answer = 0;  // Until nothing is free.
    } while (holders.size() < 64 && holders.back()->acquire() == 0);
    holders.pop_back();
    for (auto& holder : holders) {
        holder->answer = answer;
        holder->reclaims = 0;
    }
    return holders;
}

int totalReclaims(std::vector<std::unique_ptr<Client>> const& clients) {
    int total = 0;
    for (auto const& client : clients) {
        total += client->reclaims;
    }
    return total;
}

/// What a check compares: "what was expected" and "what came" are equal when all is well.
struct Outcome {
    std::string expected;
    std::string came;
};

/// Prints values, which a list computes in order.
std::string list(std::initializer_list<int> values) {
    std::string text;
    for (int const value : values) {
        text += (text.empty() ? "" : ", ") + std::to_string(value);
    }
    return text;
}

Outcome isTrue(std::string const& expected, bool came) {
    return {expected, came ? expected : "not"};
}

/// Lets all holders' callbacks do `inside` while a newcomer takes one of their cores; then looks
/// at the holder that was asked, the newcomer and the result of its request.
template <typename Check>
Outcome duringReclaim(std::function<int(Client&)> const& inside, Check const& check) {
    auto holders = holdAll(1);
    for (auto& holder : holders) {
        holder->inside = inside;
    }
    Client newcomer;
    int const result = newcomer.acquire();
    for (auto& holder : holders) {
        if (holder->reclaims > 0) {
            holder->waitUntilIdle();
            return check(*holder, newcomer, result);
        }
    }
    return {"a holder is asked", "none"};
}

struct Check {
    char const* name;
    Outcome (*run)();
};

Check const kChecks[] = {
    {"init-writes-a-handle",
     [] {
         Client client;
         return isTrue("0 and a handle", client.opened == 0 && client.handle != nullptr);
     }},
    {"free-clears-the-handle",
     [] {
         Client client;
         int const result = TVHW_CRM_ClientFree(&client.handle);
         return isTrue("0 and null", result == 0 && client.handle == nullptr);
     }},
    {"mime-types-are-known",
     [] {
         return isTrue("two types above 0 that differ, and 0 for no codec",
                       TVHW_CRM_CodecTypeFromMIME("video/avc") > 0 &&
                           TVHW_CRM_CodecTypeFromMIME("video/hevc") > 0 &&
                           TVHW_CRM_CodecTypeFromMIME("video/avc") !=
                               TVHW_CRM_CodecTypeFromMIME("video/hevc") &&
                           TVHW_CRM_CodecTypeFromMIME("") == 0);
     }},
    {"a-core-is-granted-and-described",
     [] {
         Client client;
         int const acquired = client.acquire();
         int described = -1;
         auto const held = client.held(&described);
         return isTrue("0, a core of 1 to 4, at least 640x480, and no port",
                       acquired == 0 && described == 0 && held.core >= 1 && held.core <= 4 &&
                           held.maxWidth >= 640 && held.maxHeight >= 480 && held.videoPort < 1);
     }},
    {"reserved-fields-are-zero",
     [] {
         Client client;
         client.acquire();
         auto held = client.held();
         bool const isFilled = held.core != 0;
         held.core = held.videoPort = held.maxWidth = held.maxHeight = 0;
         TVHW_CRM_RESOURCE const zero{};
         return isTrue("all other bytes 0",
                       isFilled && std::memcmp(&held, &zero, sizeof(zero)) == 0);
     }},
    {"get-fails-when-nothing-is-held",
     [] {
         Client client;
         int result = 0;
         client.held(&result);
         return isTrue("an error", client.opened == 0 && result != 0);
     }},
    {"releasing-nothing-succeeds",
     [] {
         Client client;
         return Outcome{"0", list({TVHW_CRM_ClientReleaseResource(client.handle)})};
     }},
    {"release-gives-back",
     [] {
         Client client;
         client.acquire();
         int const result = TVHW_CRM_ClientReleaseResource(client.handle);
         int described = 0;
         client.held(&described);
         return isTrue("0, then nothing held", result == 0 && described != 0);
     }},
    {"free-gives-back",
     [] {
         auto holders = holdAll(0);
         if (!holders.empty()) {
             holders.pop_back();
         }
         gForgotten = 0;
         Client newcomer;
         int const result = newcomer.acquire();
         return isTrue("0, nobody asked", result == 0 && totalReclaims(holders) + gForgotten == 0);
     }},
    {"a-core-and-a-port-at-once",
     [] {
         Client client;
         int const core = client.acquire();
         int const port = client.acquirePort();
         auto const held = client.held();
         return isTrue("both", core == 0 && port == 0 && held.core > 0 && held.videoPort > 0);
     }},
    {"a-client-keeps-its-port",
     [] {
         Client client;
         client.acquirePort();
         int const port = client.held().videoPort;
         int const again = client.acquirePort();
         return Outcome{list({0, port}), list({again, client.held().videoPort})};
     }},
    {"ports-are-cleared",
     [] {
         Client client;
         std::string came;
         for (int ports = 1; ports <= 3; ++ports) {
             TVHW_CRM_RESOURCE request{};
             request.videoPort = ports;
             came += std::to_string(TVHW_CRM_ClientClearResource(client.handle, &request));
         }
         return Outcome{"000", came};
     }},
    {"ids-are-unique",
     [] {
         Client first;
         Client second;
         int ids[2] = {0, 0};
         int const results[2] = {TVHW_CRM_ClientGetUniqueId(first.handle, &ids[0]),
                                 TVHW_CRM_ClientGetUniqueId(second.handle, &ids[1])};
         return isTrue("0 twice, and two ids", results[0] == 0 && results[1] == 0 &&
                                                   ids[0] != ids[1] && ids[0] > 0 && ids[1] > 0);
     }},
    {"a-try-grants-what-is-free",
     [] {
         Client client;
         int const result = client.acquire(true);
         return isTrue("0 and a core", result == 0 && client.held().core > 0);
     }},
    {"a-reclaim-comes-on-another-thread",
     [] {
         return duringReclaim([](Client&) { return 0; },
                              [](Client& holder, Client& newcomer, int result) {
                                  return isTrue("another thread, and the core for the newcomer",
                                                holder.thread != std::this_thread::get_id() &&
                                                    result == 0 && newcomer.held().core > 0);
                              });
     }},
    {"a-reclaim-may-take-4-seconds",
     [] {
         return duringReclaim(
             [](Client&) {
                 std::this_thread::sleep_for(std::chrono::seconds(4));
                 return 0;
             },
             [](Client&, Client&, int result) {
                 return Outcome{"0", list({result})};
             });
     }},
    {"the-cookie-comes-back",
     [] {
         return duringReclaim([](Client&) { return 0; },
                              [](Client& holder, Client&, int) {
                                  int described = 0;
                                  holder.held(&described);
                                  return isTrue("that of the client whose core is taken",
                                                described != 0);
                              });
     }},
    // The other thread is one that the callback may wait for; a lock that this thread may take
    // again would stop it.
    {"no-lock-is-held-in-a-reclaim",
     [] {
         return duringReclaim(
             [](Client& holder) {
                 auto const release = [&] { return TVHW_CRM_ClientReleaseResource(holder.handle); };
                 int const besides = holder.callFromOtherThread(release);
                 return besides == 0 ? release() : besides;
             },
             [](Client& holder, Client&, int result) {
                 return Outcome{list({0, 0}), list({holder.insideResult.load(), result})};
             });
     }},
    {"freeing-inside-a-reclaim",
     [] {
         return duringReclaim(
             [](Client& holder) { return TVHW_CRM_ClientFree(&holder.handle); },
             [](Client& holder, Client&, int result) {
                 return Outcome{list({0, 0}), list({holder.insideResult.load(), result})};
             });
     }},
    // Free may wait for the callback, which therefore goes on when Free takes long.
    {"freeing-during-a-reclaim",
     [] {
         return duringReclaim(
             [](Client& holder) {
                 return holder.callFromOtherThread(
                     [&] { return TVHW_CRM_ClientFree(&holder.handle); });
             },
             [](Client& holder, Client& newcomer, int result) {
                 int const freed = holder.otherThread.valid() ? holder.otherThread.get()
                                                              : holder.insideResult.load();
                 return isTrue("0 twice, and the core for the newcomer",
                               freed == 0 && result == 0 && newcomer.held().core > 0);
             });
     }},
    // The successor keeps what it gets, so that it must be another core than the newcomer's.
    {"restarting-inside-a-reclaim",
     [] {
         return duringReclaim(
             [](Client& holder) {
                 holder.successor = std::make_unique<Client>();
                 holder.successor->answer = 0;
                 holder.successor->acquire();
                 return 1;
             },
             [](Client& holder, Client&, int result) {
                 return isTrue("an answer inside, and the core for the newcomer",
                               holder.insideResult == 1 && result == 0);
             });
     }},
    {"after-a-reclaim-release-and-free-succeed",
     [] {
         return duringReclaim(
             [](Client&) { return 0; },
             [](Client& holder, Client&, int) {
                 int const release = TVHW_CRM_ClientReleaseResource(holder.handle);
                 return Outcome{list({0, 0}), list({release, TVHW_CRM_ClientFree(&holder.handle)})};
             });
     }},
    {"after-a-reclaim-a-core-is-granted-again",
     [] {
         return duringReclaim([](Client&) { return 0; },
                              [](Client& holder, Client& newcomer, int) {
                                  TVHW_CRM_ClientFree(&newcomer.handle);
                                  return Outcome{"0", list({holder.acquire()})};
                              });
     }},
    {"a-refused-reclaim-leaves-the-core",
     [] {
         auto const holders = holdAll(0);
         Client newcomer;
         bool const isRefused = newcomer.acquire() != 0;
         bool keep = !holders.empty() && totalReclaims(holders) > 0;
         for (auto const& holder : holders) {
             keep = keep && holder->held().core > 0;
         }
         return isTrue("an error, and all keep theirs", isRefused && keep);
     }},
    {"the-panel-has-a-size",
     [] {
         TVHW_VBE_PANEL_SIZE size{};
         int const result = TVHW_VBE_DISP_GetPanelSize(&size);
         return isTrue("0 and a size above 0", result == 0 && size.width > 0 && size.height > 0);
     }},
    {"the-scaler-shows-a-source",
     [] {
         TVHW_VSC_SOURCE const source{2, 0, 0, {0, 0}};
         std::string const came =
             list({TVHW_VSC_Initialize(), TVHW_VSC_Open(0), TVHW_VSC_Connect(0, source, 0),
                   TVHW_VSC_SetAdaptiveStreamEx(0, 1), TVHW_VSC_SetWinBlank(0, 1, 0),
                   TVHW_VSC_SetInputRegion(0, {0, 0, 64, 64}),
                   TVHW_VSC_SetInputRegion_ForAdaptive(0, {0, 0, 64, 64}),
                   TVHW_VSC_SetOutputRegion(0, {0, 0, 64, 64}), TVHW_VSC_SetWinBlank(0, 0, 0),
                   TVHW_VSC_Disconnect(0, source, 0), TVHW_VSC_Close(0)});
         return Outcome{list({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}), came};
     }},
    {"the-video-output-opens-twice",
     [] {
         TVHW_VO_CONFIG_PARAM config{};
         config.mode = TVHW_VO_MODE_STILL;
         config.width = config.height = 64;
         config.pixelFormat = TVHW_VO_PIXEL_FORMAT_STILL;
         std::string const came =
             list({TVHW_VO_Open(0, TVHW_VO_MODE_STILL), TVHW_VO_Open(0, TVHW_VO_MODE_STILL),
                   TVHW_VO_Config(0, &config), TVHW_VO_Close(0), TVHW_VO_Close(0)});
         return Outcome{list({0, 0, 0, 0, 0}), came};
     }},
    {"an-unset-property-reads-its-default",
     [] {
         return Outcome{
             "-77",
             list({SystemUtils::getInstance().getIntProperty("tvhw.platform.check.unset", -77)})};
     }},
    // A table of another order would call a notification here, whose answer is not a bool.
    {"system-utils-slots",
     [] {
         auto& utils = SystemUtils::getInstance();
         bool const first = utils.allowsForcedAcquire(getpid());
         utils.onProcessReclaimed(getpid());
         utils.onReclaimedClientReleased(getpid());
         return isTrue("this process may force (unless a policy forbids it), before and after",
                       first && utils.allowsForcedAcquire(getpid()));
     }},
};

char const* gRunning = "";

bool runCheck(Check const& check) {
    gRunning = check.name;
    alarm(kHangSeconds);
    Outcome const outcome = check.run();
    alarm(0);
    bool const isWell = outcome.expected == outcome.came;
    std::cout << (isWell ? "ok      " : "FAILED  ") << check.name << ": expected "
              << outcome.expected << (isWell ? "" : "; came: " + outcome.came) << std::endl;
    return isWell;
}

void onHang(int) {
    static char const kText[] = ": no answer\n";
    bool const isTold = write(STDOUT_FILENO, "FAILED  ", 8) > 0 &&
                        write(STDOUT_FILENO, gRunning, std::strlen(gRunning)) > 0 &&
                        write(STDOUT_FILENO, kText, sizeof(kText) - 1) > 0;
    _exit(isTold ? 1 : 2);
}

}  // namespace

// On a device nothing throws; here only a lack of memory does.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int count, char** arguments) {
    std::vector<std::string> const names(arguments + 1, arguments + count);
    if (names == std::vector<std::string>{"--help"}) {
        std::cout << kHelp;
        return 0;
    }
    std::vector<Check> chosen;
    for (Check const& check : kChecks) {
        if (names == std::vector<std::string>{"--list"}) {
            std::cout << check.name << "\n";
        } else if (names.empty() ||
                   std::find(names.begin(), names.end(), check.name) != names.end()) {
            chosen.push_back(check);
        }
    }
    if (names == std::vector<std::string>{"--list"}) {
        return 0;
    }
    for (std::string const& name : names) {
        if (std::none_of(chosen.begin(), chosen.end(),
                         [&](Check const& check) { return check.name == name; })) {
            std::cerr << "tvhw-platform-check: there is no check " << name << "; see --list\n";
            return 2;
        }
    }
    static_cast<void>(std::signal(SIGALRM, onHang));
    std::size_t failed = 0;
    for (Check const& check : chosen) {
        failed += runCheck(check) ? 0U : 1U;
    }
    std::cout << chosen.size() - failed << " of " << chosen.size()
              << " checks came out as expected\n";
    return failed == 0 ? 0 : 1;
}
