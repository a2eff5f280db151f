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

Values openChannel() {
    return {{"initialize", CALL(TVHW_VSC_Initialize)()}, {"open", CALL(TVHW_VSC_Open)(kChannel)}};
}

Values closeChannel() { return {{"close", CALL(TVHW_VSC_Close)(kChannel)}}; }

Values connect(int type, int adaptive) {
    return {{"blank", CALL(TVHW_VSC_SetWinBlank)(kChannel, 1, 0)},
            {"connect", CALL(TVHW_VSC_Connect)(kChannel, source(type), 0)},
            {"adaptive", CALL(TVHW_VSC_SetAdaptiveStreamEx)(kChannel, adaptive)}};
}

Values place() {
    return {{"input", CALL(TVHW_VSC_SetInputRegion)(kChannel, kInput)},
            {"output", CALL(TVHW_VSC_SetOutputRegion)(kChannel, kOutput)},
            {"show", CALL(TVHW_VSC_SetWinBlank)(kChannel, 0, 0)}};
}

Values placeAdaptive() {
    return {{"adaptive input", CALL(TVHW_VSC_SetInputRegion_ForAdaptive)(kChannel, kAdaptiveInput)},
            {"output", CALL(TVHW_VSC_SetOutputRegion)(kChannel, kOutput)},
            {"show", CALL(TVHW_VSC_SetWinBlank)(kChannel, 0, 0)}};
}

Values disconnect(int type) {
    return {{"blank", CALL(TVHW_VSC_SetWinBlank)(kChannel, 1, 0)},
            {"disconnect", CALL(TVHW_VSC_Disconnect)(kChannel, source(type), 0)}};
}

/// What it answers is its own affair; that it goes on is not.
Values disconnectNothing() {
    CALL(TVHW_VSC_Disconnect)(kChannel, source(2), 0);
    return {};
}

/// As the library's client shows a source whose size does not change, then one whose size does.
Outcome shows() {
    return areRightInOrder({openChannel(), connect(2, 0), place(), place(), disconnect(2),
                            connect(3, 1), placeAdaptive(), placeAdaptive(), disconnect(3),
                            closeChannel()});
}

Outcome knowsSources() {
    return areRightInOrder({openChannel(), connect(0, 0), disconnect(0), connect(2, 0),
                            disconnect(2), connect(3, 0), disconnect(3), closeChannel()});
}

Outcome connectsTwice() {
    return areRightInOrder({openChannel(), connect(2, 0), place(), connect(3, 1), connect(3, 1),
                            placeAdaptive(), disconnect(3), connect(2, 0), connect(3, 1),
                            disconnect(3), closeChannel()});
}

Outcome closesConnected() {
    return areRightInOrder({openChannel(), connect(2, 0), place(), closeChannel(), openChannel(),
                            connect(2, 0), place(), closeChannel(), openChannel(), closeChannel()});
}

Outcome disconnectsNothing() {
    return areRightInOrder({openChannel(), disconnectNothing(), connect(2, 0), disconnect(2),
                            disconnectNothing(), connect(3, 0), closeChannel()});
}

Outcome opensChannelEachTime() {
    CALL(TVHW_VSC_Initialize)();
    return aHundredTimes([](int) {
        return Values{{"open", CALL(TVHW_VSC_Open)(kChannel)},
                      {"close", CALL(TVHW_VSC_Close)(kChannel)}};
    });
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
                     {"config 642x362", configure(642, 362)},
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
    return areRightInOrder({once(), {{"needless close", closeOutput(), Value::kAny}}, once()});
}

Outcome opensOutputEachTime() {
    return aHundredTimes([](int round) {
        return Values{{"open", openOutput()},
                      {"config", configure(318 + 2 * round, 238 + 2 * round)},
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
         "channel 0 is opened; a source of type 2, then an adaptive one of type 3 is connected, "
         "placed twice and disconnected; the channel is closed",
         "0 for each step", shows},
        {kMust, "the-scaler-knows-its-sources",
         "sources of type 0, 2 and 3, port 0, are connected and disconnected", "0 for each step",
         knowsSources},
        {kMust, "the-scaler-connects-twice",
         "a source of type 2 is connected and placed, then twice one of type 3 without a "
         "disconnect, which is placed and disconnected; then once again each",
         "0 for each step", connectsTwice},
        {kMust, "the-scaler-closes-while-connected",
         "a source is connected and placed, the channel closed and opened again, twice over",
         "0 for each step", closesConnected},
        {kMust, "the-scaler-outlives-a-needless-disconnect",
         "a source is disconnected before it is connected and again afterwards, whatever that "
         "answers; then another is connected",
         "0 for each other step", disconnectsNothing},
        {kMust, "the-scaler-opens-each-time", "channel 0 is opened and closed, 100 times",
         "0 for each step", opensChannelEachTime},
    };
}

Checks outputChecks() {
    return {
        {kMust, "the-video-output-takes-pictures",
         "output 0 is opened, prepared for two sizes and closed", "0 for each step", takesPictures},
        {kMust, "the-video-output-opens-twice",
         "output 0 is opened twice, prepared, opened again, closed twice, prepared and closed",
         "0 for each step", opensTwice},
        {kMust, "the-video-output-closes-what-is-closed",
         "output 0 is closed, whatever that answers, then opened, prepared and closed, twice over",
         "0 for each step but a close that no open came before", closesWhatIsClosed},
        {kMust, "the-video-output-opens-each-time",
         "output 0 is opened, prepared and closed, 100 times", "0 for each step",
         opensOutputEachTime},
    };
}

Checks panelChecks() {
    return {{kMust, "the-panel-has-a-size", "TVHW_VBE_DISP_GetPanelSize, twice",
             "0, and the same size above 0 by 0, with nothing written behind it (4711)",
             panelSize}};
}

}  // namespace kvo::check
