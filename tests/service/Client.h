#pragma once

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "tvhw_crm.h"

template <typename Condition>
void waitUntil(Condition const& isMet) {
    while (!isMet()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

/// A client of the resource manager that counts what is asked of it.
struct Client {
    TVHW_CRM_HANDLE handle = nullptr;
    std::string onReclaim;  ///< "give", "keep", "hang", "late", "die", "lose" (the bus) or "again".
    std::atomic<int> reclaims{0};
    std::atomic<bool> isLate{true};  ///< So long "late" does not answer.
    std::atomic<int> inside{1};      ///< The result of a request from inside the callback.
    int opened;

    explicit Client(std::string behaviour = "give")
        : onReclaim(std::move(behaviour)),
          opened(TVHW_CRM_ClientInit(&handle, "test", answer, 0, this)) {}
    ~Client() {
        if (handle != nullptr) {
            TVHW_CRM_ClientFree(&handle);
        }
    }
    Client(Client const&) = delete;
    Client& operator=(Client const&) = delete;

    static int answer(TVHW_CRM_RECLAIM_PARAM const*, void* cookie) {
        auto& client = *static_cast<Client*>(cookie);
        ++client.reclaims;
        if (client.onReclaim == "die") {
            raise(SIGKILL);
        }
        if (client.onReclaim == "hang") {
            std::this_thread::sleep_for(std::chrono::seconds(60));
        }
        waitUntil([&] { return client.onReclaim != "late" || !client.isLate; });
        if (client.onReclaim == "again") {
            client.inside = Client().acquire(1920);
        }
        if (client.onReclaim == "lose") {
            std::puts("asked");
            std::fflush(stdout);
            client.waitForLoss();
        }
        return client.onReclaim == "keep" ? 2 : 1;  // 1 alone gives up.
    }

    int acquire(int width = 640, int codecType = 1) {
        TVHW_CRM_ACQUIRE_PARAM request{codecType, width, 0, 0, 0, 0, {}};
        return TVHW_CRM_ClientAcquireResource(handle, &request);
    }

    int core() {
        TVHW_CRM_RESOURCE resource{};
        int const result = TVHW_CRM_ClientGetResource(handle, &resource);
        return result == 0 ? resource.core : result;
    }

    /// Waits until there is no service, or already a new one.
    void waitForLoss() {
        waitUntil([&] {
            int const result = core();
            return result == -111 || result == -22;
        });
    }
};

/// A child process that runs this program anew with `arguments`; its output can be read.
class Process {
public:
    explicit Process(std::vector<std::string> arguments) {
        int pipeEnds[2];
        if (pipe(pipeEnds) != 0) {
            std::abort();
        }
        mPid = fork();
        if (mPid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);  // A test that is stopped leaves nothing behind.
            dup2(pipeEnds[1], STDOUT_FILENO);
            close(pipeEnds[0]);
            std::vector<char*> words;
            for (std::string& argument : arguments) {
                words.push_back(argument.data());
            }
            words.push_back(nullptr);
            execvp(words[0], words.data());
            _exit(127);
        }
        close(pipeEnds[1]);
        mOutput = fdopen(pipeEnds[0], "r");
    }
    ~Process() {
        end(SIGKILL);
        std::fclose(mOutput);
    }
    Process(Process const&) = delete;
    Process& operator=(Process const&) = delete;

    std::string line() {
        char text[256] = "";
        char const* const read = std::fgets(text, sizeof(text), mOutput);
        std::string result = read == nullptr ? "" : text;
        return result.substr(0, result.find('\n'));
    }

    int id() const { return mPid; }
    void signal(int number) const { kill(mPid, number); }

    /// Returns the raw status of the process once it has ended.
    int end(int signal = 0) {
        if (mPid > 0) {
            if (signal != 0) {
                kill(mPid, signal);
            }
            waitpid(mPid, &mStatus, 0);
            mPid = 0;
        }
        return mStatus;
    }

private:
    pid_t mPid = 0;
    int mStatus = 0;
    FILE* mOutput = nullptr;
};
