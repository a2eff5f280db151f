#include "Check.h"
#include "tvhw_vsc.h"

namespace kvo::check {

namespace {

constexpr std::uint32_t kChannel = 0;  // The one that every scaler has.

// All numbers differ, and from those of the other window.
constexpr TVHW_VSC_WINDOW kInput{2, 4, 318, 238};
constexpr TVHW_VSC_WINDOW kAdaptiveInput{6, 8, 402, 266};
constexpr TVHW_VSC_WINDOW kOutput{10, 12, 510, 286};

constexpr TVHW_VSC_SOURCE source(int type, int port) {
    return {type, 0, static_cast<std::uint8_t>(port), {0, 0}};
}

void open(Steps& steps) {
    steps("initialize", CALL(TVHW_VSC_Initialize)());
    steps("open", CALL(TVHW_VSC_Open)(kChannel));
}

void connect(Steps& steps, TVHW_VSC_SOURCE from, int adaptive) {
    steps("blank", CALL(TVHW_VSC_SetWinBlank)(kChannel, 1, 0));
    steps("connect", CALL(TVHW_VSC_Connect)(kChannel, from, 0));
    steps("adaptive", CALL(TVHW_VSC_SetAdaptiveStreamEx)(kChannel, adaptive));
}

void place(Steps& steps, bool isAdaptive) {
    if (isAdaptive) {
        steps("adaptive input",
              CALL(TVHW_VSC_SetInputRegion_ForAdaptive)(kChannel, kAdaptiveInput));
    } else {
        steps("input", CALL(TVHW_VSC_SetInputRegion)(kChannel, kInput));
    }
    steps("output", CALL(TVHW_VSC_SetOutputRegion)(kChannel, kOutput));
    steps("show", CALL(TVHW_VSC_SetWinBlank)(kChannel, 0, 0));
}

void disconnect(Steps& steps, TVHW_VSC_SOURCE from) {
    steps("blank", CALL(TVHW_VSC_SetWinBlank)(kChannel, 1, 0));
    steps("disconnect", CALL(TVHW_VSC_Disconnect)(kChannel, from, 0));
}

/// As the library's client shows a source whose size does not change, then one whose size does.
Outcome shows() {
    Steps steps;
    open(steps);
    for (int adaptive : {0, 1}) {
        auto const from = source(2 + adaptive, 0);
        connect(steps, from, adaptive);
        place(steps, adaptive == 1);
        place(steps, adaptive == 1);
        disconnect(steps, from);
    }
    steps("close", CALL(TVHW_VSC_Close)(kChannel));
    return steps.done();
}

Outcome knowsSources() {
    Steps steps;
    open(steps);
    for (int const type : {0, 2, 3}) {
        connect(steps, source(type, 0), 0);
        disconnect(steps, source(type, 0));
    }
    steps("close", CALL(TVHW_VSC_Close)(kChannel));
    return steps.done();
}

Outcome connectsTwice() {
    Steps steps;
    open(steps);
    connect(steps, source(2, 0), 0);
    place(steps, false);
    connect(steps, source(3, 0), 1);
    connect(steps, source(3, 0), 1);
    place(steps, true);
    disconnect(steps, source(3, 0));
    steps("close", CALL(TVHW_VSC_Close)(kChannel));
    return steps.done();
}

Outcome closesConnected() {
    Steps steps;
    open(steps);
    for (int round = 0; round < 2; ++round) {
        connect(steps, source(2, 0), 0);
        place(steps, false);
        steps("close", CALL(TVHW_VSC_Close)(kChannel));
        steps("open", CALL(TVHW_VSC_Open)(kChannel));
    }
    steps("close", CALL(TVHW_VSC_Close)(kChannel));
    return steps.done();
}

/// What it answers to the disconnects is its own affair; that it goes on is not.
Outcome disconnectsNothing() {
    Steps steps;
    open(steps);
    CALL(TVHW_VSC_Disconnect)(kChannel, source(2, 0), 0);
    connect(steps, source(2, 0), 0);
    disconnect(steps, source(2, 0));
    CALL(TVHW_VSC_Disconnect)(kChannel, source(2, 0), 0);
    connect(steps, source(3, 0), 0);
    steps("close", CALL(TVHW_VSC_Close)(kChannel));
    return steps.done();
}

Outcome closesEachTime() {
    Steps steps;
    steps("initialize", CALL(TVHW_VSC_Initialize)());
    for (int round = 0; round < 100; ++round) {
        int const results[] = {CALL(TVHW_VSC_Open)(kChannel), CALL(TVHW_VSC_Close)(kChannel)};
        if (results[0] != 0 || results[1] != 0 || round == 99) {
            steps("open", results[0]);
            steps("close", results[1]);
            break;
        }
    }
    return steps.done();
}

}  // namespace

Checks scalerChecks() {
    return {
        {Level::kMust, "the-scaler-shows-a-source",
         "channel 0 is opened; a source of type 2, then an adaptive one of type 3 is connected, "
         "placed twice and disconnected; the channel is closed",
         "0 for each step", shows},
        {Level::kMust, "the-scaler-knows-its-sources",
         "sources of type 0, 2 and 3, port 0, are connected and disconnected", "0 for each step",
         knowsSources},
        {Level::kMust, "the-scaler-connects-twice",
         "a source of type 2 is connected and placed, then twice one of type 3 without a "
         "disconnect, which is placed and disconnected",
         "0 for each step", connectsTwice},
        {Level::kMust, "the-scaler-closes-while-connected",
         "a source is connected and placed, the channel closed and opened again, twice over",
         "0 for each step", closesConnected},
        {Level::kMust, "the-scaler-outlives-a-needless-disconnect",
         "a source is disconnected before it is connected and again afterwards, whatever that "
         "answers; then another is connected",
         "0 for each other step", disconnectsNothing},
        {Level::kMust, "the-scaler-opens-each-time", "channel 0 is opened and closed, 100 times",
         "0 for each step", closesEachTime},
    };
}

}  // namespace kvo::check
