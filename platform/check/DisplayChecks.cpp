// The video scaler, the video output and the panel.

#include "Check.h"
#include "tvhw_vbe.h"
#include "tvhw_vo.h"
#include "tvhw_vsc.h"

namespace kvo::check {

namespace {

// --- The scaler.

constexpr std::uint32_t kChannel = 0;  // The one that every scaler has.

// All numbers differ, and from those of the other window.
constexpr TVHW_VSC_WINDOW kInput{2, 4, 318, 238};
constexpr TVHW_VSC_WINDOW kAdaptiveInput{6, 8, 402, 266};
constexpr TVHW_VSC_WINDOW kOutput{10, 12, 510, 286};

constexpr TVHW_VSC_SOURCE source(int type) { return {type, 0, 0, {0, 0}}; }

// Steps, each of which must answer 0.

/// Initialises the scaler first, once in a process.
Values openChannel() {
    static int const initialized = CALL(TVHW_VSC_Initialize)();
    return {{"initialize", initialized}, {"open", CALL(TVHW_VSC_Open)(kChannel)}};
}

Values closeChannel() { return {{"close", CALL(TVHW_VSC_Close)(kChannel)}}; }

Values connect(int type, int adaptive) {
    return {{"blank", CALL(TVHW_VSC_SetWinBlank)(kChannel, 1, 0)},
            {"connect", CALL(TVHW_VSC_Connect)(kChannel, source(type), 0)},
            {"adaptive", CALL(TVHW_VSC_SetAdaptiveStreamEx)(kChannel, adaptive)}};
}

Values place(bool isAdaptive = false) {
    return {
        {"input", isAdaptive ? CALL(TVHW_VSC_SetInputRegion_ForAdaptive)(kChannel, kAdaptiveInput)
                             : CALL(TVHW_VSC_SetInputRegion)(kChannel, kInput)},
        {"output", CALL(TVHW_VSC_SetOutputRegion)(kChannel, kOutput)},
        {"show", CALL(TVHW_VSC_SetWinBlank)(kChannel, 0, 0)}};
}

Values disconnect(int type) {
    return {{"blank", CALL(TVHW_VSC_SetWinBlank)(kChannel, 1, 0)},
            {"disconnect", CALL(TVHW_VSC_Disconnect)(kChannel, source(type), 0)}};
}

/// What it answers is its own affair; that it goes on is not.
Values disconnectNothing() {
    return {{"needless", CALL(TVHW_VSC_Disconnect)(kChannel, source(2), 0), Value::kAny}};
}

/// Another client may use another channel, if there is one.
Values useAnotherChannel() {
    if (CALL(TVHW_VSC_Open)(kChannel + 1) == 0) {
        CALL(TVHW_VSC_Close)(kChannel + 1);
    }
    return {};
}

/// As the library's client shows a source whose size does not change, then one whose size does.
Outcome shows() {
    return areRight(
        inOrder({openChannel(), onAnotherThread([] { return connect(2, 0); }), useAnotherChannel(),
                 place(), onAnotherThread([] { return place(); }), disconnect(2), connect(3, 1),
                 onAnotherThread([] { return place(true); }), place(true), disconnect(3),
                 onAnotherThread(closeChannel)}));
}

Outcome knowsSources() {
    return areRight(inOrder({openChannel(), connect(0, 0), disconnect(0), connect(2, 0),
                             disconnect(2), connect(3, 0), disconnect(3), closeChannel()}));
}

Outcome connectsTwice() {
    return areRight(
        inOrder({openChannel(), connect(2, 0), place(), connect(3, 1), connect(3, 1), place(true),
                 disconnect(3), connect(2, 0), connect(3, 1), disconnect(3), closeChannel()}));
}

Outcome closesConnected() {
    return areRight(
        inOrder({openChannel(), connect(2, 0), place(), closeChannel(), openChannel(),
                 connect(2, 0), place(), closeChannel(), openChannel(), closeChannel()}));
}

Outcome disconnectsNothing() {
    return areRight(inOrder({openChannel(), disconnectNothing(), connect(2, 0), disconnect(2),
                             disconnectNothing(), connect(3, 0), closeChannel()}));
}

Outcome opensChannelEachTime() {
    return manyTimes([](int) { return inOrder({openChannel(), closeChannel()}); });
}

// --- The output.

int openOutput() { return CALL(TVHW_VO_Open)(0, TVHW_VO_MODE_STILL); }

int closeOutput() { return CALL(TVHW_VO_Close)(0); }

int configure(int width, int height) {
    TVHW_VO_CONFIG_PARAM config{};
    config.mode = TVHW_VO_MODE_STILL;
    config.width = width;
    config.height = height;
    config.pixelFormat = TVHW_VO_PIXEL_FORMAT_STILL;
    return CALL(TVHW_VO_Config)(0, &config);
}

Outcome takesPictures() {
    return areRight({{"open", openOutput()},
                     {"config 318x238", configure(318, 238)},
                     {"config 642x362", onAnotherThread([] { return configure(642, 362); })},
                     {"close", closeOutput()}});
}

/// A sink that is destroyed closes for itself: the others' pictures go on.
Outcome opensTwice() {
    return areRight({{"open", openOutput()},
                     {"open", openOutput()},
                     {"config", configure(318, 238)},
                     {"open", openOutput()},
                     {"close", closeOutput()},
                     {"close", closeOutput()},
                     {"config", configure(322, 242)},
                     {"close", closeOutput()}});
}

/// What it answers to a close without an open is its own affair; that it opens then is not.
Outcome closesWhatIsClosed() {
    auto const once = [] {
        return Values{{"needless close", closeOutput(), Value::kAny},
                      {"open", openOutput()},
                      {"config", configure(318, 238)},
                      {"close", closeOutput()}};
    };
    return areRight(inOrder({once(), {{"needless close", closeOutput(), Value::kAny}}, once()}));
}

Outcome opensOutputEachTime() {
    return manyTimes([](int round) {
        return Values{{"open", openOutput()},
                      {"config", configure(318 + 2 * (round % 9), 238 + 2 * (round % 7))},
                      {"close", closeOutput()}};
    });
}

// --- The panel.

Outcome panelSize() {
    struct {
        TVHW_VBE_PANEL_SIZE size{-1, -1};
        std::int32_t behind = 4711;
    } memory;
    int const result = CALL(TVHW_VBE_DISP_GetPanelSize)(&memory.size);
    TVHW_VBE_PANEL_SIZE again{0, 0};
    int const second = CALL(TVHW_VBE_DISP_GetPanelSize)(&again);
    constexpr int kMost = 65535;  // More is a record that was not written, or not whole.
    auto const isSize = [](int pixels) { return pixels > 0 && pixels <= kMost; };
    return areRight({{"result", result},
                     {"width", again.width, memory.size.width},
                     {"height", again.height, memory.size.height},
                     {"behind the record", memory.behind, 4711},
                     {"second result", second},
                     {"is a size", isSize(again.width) && isSize(again.height), 1}});
}

}  // namespace

Checks scalerChecks() {
    return {
        {kMust, "the-scaler-shows-a-source",
         "sources of type 2 and, adaptive, 3 are shown by several threads; channel 1 comes and "
         "goes",
         "0 for each step", shows},
        {kMust, "the-scaler-knows-its-sources",
         "sources of type 0, 2 and 3, port 0, are connected and disconnected", "0 for each step",
         knowsSources},
        {kMust, "the-scaler-connects-twice",
         "sources of type 2 and 3 take each other's place, and their own, without a disconnect",
         "0 for each step", connectsTwice},
        {kMust, "the-scaler-closes-while-connected",
         "a source is connected and placed, the channel closed and opened again, twice over",
         "0 for each step", closesConnected},
        {kMust, "the-scaler-outlives-a-needless-disconnect",
         "a source is disconnected before it is connected and again after it was; then another",
         "0 for each other step", disconnectsNothing},
        {kMust, "the-scaler-opens-each-time", "channel 0 is opened and closed, 100 to 1000 times",
         "0 for each step, and nothing kept each time", opensChannelEachTime},
    };
}

Checks outputChecks() {
    return {
        {kMust, "the-video-output-takes-pictures",
         "output 0 is opened, prepared for a size, then on another thread for another, and closed",
         "0 for each step", takesPictures},
        {kMust, "the-video-output-opens-twice",
         "output 0 is opened twice, prepared, opened again, closed twice, prepared and closed",
         "0 for each step", opensTwice},
        {kMust, "the-video-output-closes-what-is-closed",
         "output 0 is closed, whatever that answers, then opened, prepared and closed, twice over",
         "0 for each step but a close that no open came before", closesWhatIsClosed},
        {kMust, "the-video-output-opens-each-time",
         "output 0 is opened, prepared and closed, 100 to 1000 times",
         "0 for each step, and nothing kept each time", opensOutputEachTime},
    };
}

Checks panelChecks() {
    return {{kMust, "the-panel-has-a-size", "TVHW_VBE_DISP_GetPanelSize, twice",
             "0, and the same size above 0 by 0, with nothing written behind it (4711)",
             panelSize}};
}

}  // namespace kvo::check
