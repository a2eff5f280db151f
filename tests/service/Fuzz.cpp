#include <sdbus-c++/sdbus-c++.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <random>
#include <sstream>

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

/// Takes a number from an input; 0 when that has been read.
unsigned int below(unsigned int bound, std::istream& input) {
    int const byte = input.get();
    return byte == EOF ? 0 : static_cast<unsigned int>(byte) % bound;
}

void append(sdbus::MethodCall& call, char type, std::istream& input) {
    static int const kNumbers[] = {INT32_MIN, -1, 0, 1, 640, 1920, 70001, INT32_MAX};
    if (below(16, input) == 0) {
        type = "sibx"[below(4, input)];  // Not what belongs here.
    }
    if (type == 's') {
        call << std::string(std::size_t{1} << below(20, input), 'x');
    } else if (type == 'b') {
        call << (below(2, input) == 1);
    } else if (type == 'x') {
        call << std::int64_t{-1};
    } else {
        // Mostly what is likely to be a client of these peers.
        unsigned int const kind = below(256, input);
        call << (kind < 128 ? 70001 + static_cast<int>(kind % 16) : kNumbers[kind % 8]);
    }
}

void play(std::string const& bytes) {
    std::istringstream input(bytes);
    std::unique_ptr<Peer> peers[4];
    while (input.peek() != EOF) {
        auto& peer = peers[below(4, input)];
        if (peer == nullptr) {
            peer = std::make_unique<Peer>();
        }
        if (below(16, input) == 0) {
            peer = nullptr;
            continue;
        }
        auto const [operation, types] = kOperations[below(std::size(kOperations), input)];
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
