#include <sdbus-c++/sdbus-c++.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <random>
#include <thread>

#include "service/BusNames.h"

// Sends made-up calls to the service of this bus, from peers that go at any moment.
namespace {

using Clock = std::chrono::steady_clock;
using namespace kvo::service;

constexpr char kUsage[] = R"(Usage: tvhw_service_fuzz SECONDS [FILE...]
Plays the files, then made-up ones for SECONDS, as calls to the service of this bus: each byte chooses
a peer, an operation, a value or its type. Exits with 0 when the service answers and has no clients
after each, with 1 when not, and leaves the input in tvhw_service_fuzz.found, and with 2 on bad usage.
)";

constexpr std::pair<char const*, char const*> kOperations[] = {
    {"OpenClient", "si"}, {"CloseClient", "i"},    {"GiveBack", "i"},
    {"GetHolding", "i"},  {"Acquire", "ibbiiibi"}, {"AnswerReclaim", "ii"},
    {"Reclaim", "ib"},    {"SetLogLevel", "i"},    {"AllowsForcedAcquire", "i"},
    {"Status", ""},       {"StatusAsJson", ""},    {"Nothing", "si"}};

struct Peer {
    std::unique_ptr<sdbus::IConnection> connection = sdbus::createSessionBusConnection();
    std::unique_ptr<sdbus::IProxy> service =
        sdbus::createProxy(*connection, kServiceName, kServicePath);
};

/// The bytes of an input, and 0 when they have all been read.
class Input {
public:
    explicit Input(std::string const& bytes) : mBytes(bytes) {}
    bool isAtEnd() const { return mAt >= mBytes.size(); }
    unsigned int next() { return isAtEnd() ? 0 : static_cast<unsigned char>(mBytes[mAt++]); }
    unsigned int below(unsigned int bound) { return next() % bound; }

private:
    std::string const& mBytes;
    std::size_t mAt = 0;
};

void append(sdbus::MethodCall& call, char type, Input& input) {
    static int const kNumbers[] = {INT32_MIN, -1, 0, 1, 640, 1920, 70001, INT32_MAX};
    if (input.below(16) == 0) {
        type = "sibx"[input.below(4)];  // Not what belongs here.
    }
    if (type == 's') {
        call << std::string(std::size_t{1} << input.below(20), 'x');
    } else if (type == 'b') {
        call << (input.below(2) == 1);
    } else if (type == 'x') {
        call << std::int64_t{-1};
    } else {
        // Mostly what is likely to be a client of these peers.
        unsigned int const kind = input.next();
        call << (kind < 128 ? 70001 + static_cast<int>(kind % 16) : kNumbers[kind % 8]);
    }
}

void play(std::string const& bytes) {
    Input input(bytes);
    std::unique_ptr<Peer> peers[4];
    while (!input.isAtEnd()) {
        auto& peer = peers[input.below(4)];
        if (peer == nullptr) {
            peer = std::make_unique<Peer>();
        }
        if (input.below(16) == 0) {
            peer = nullptr;
            continue;
        }
        auto const [operation, types] = kOperations[input.below(std::size(kOperations))];
        auto call = peer->service->createMethodCall(kServiceInterface, operation);
        for (char const* type = types; *type != '\0'; ++type) {
            append(call, *type, input);
        }
        call.dontExpectReply();
        peer->service->callMethod(call);
    }
}

bool isWell() {
    Peer peer;
    std::string status;
    auto const end = Clock::now() + std::chrono::seconds(10);
    while (Clock::now() < end && status.find("\n0 clients are open.") == std::string::npos) {
        peer.service->callMethod("Status").onInterface(kServiceInterface).storeResultsTo(status);
    }
    std::cerr << (Clock::now() < end ? "" : status);
    return Clock::now() < end;
}

bool survives(std::string const& bytes) {
    try {
        play(bytes);
        if (isWell()) {
            return true;
        }
    } catch (sdbus::Error const& error) {
        std::cerr << "tvhw_service_fuzz: " << error.what() << "\n";
    }
    std::ofstream("tvhw_service_fuzz.found") << bytes;
    return false;
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 2 || std::atoi(arguments[1]) == 0) {
        std::cerr << kUsage;
        return 2;
    }
    for (int number = 2; number < count; ++number) {
        std::ifstream file(arguments[number]);
        if (!survives({std::istreambuf_iterator<char>(file), {}})) {
            return 1;
        }
    }
    auto const seed = std::random_device()();
    std::minstd_rand random(seed);
    int played = 0;
    auto const end = Clock::now() + std::chrono::seconds(std::atoi(arguments[1]));
    for (; Clock::now() < end; ++played) {
        std::string bytes(random() % 400, '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(random() >> 8);
        }
        if (!survives(bytes)) {
            return 1;
        }
    }
    std::cout << played << " inputs, seed " << seed << "\n";
    return 0;
}
