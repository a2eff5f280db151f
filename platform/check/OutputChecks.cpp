#include "Check.h"
#include "tvhw_vo.h"

namespace kvo::check {

namespace {

constexpr std::int32_t kOutput = 0;

int open() { return CALL(TVHW_VO_Open)(kOutput, TVHW_VO_MODE_STILL); }

int close() { return CALL(TVHW_VO_Close)(kOutput); }

int configure(int width, int height) {
    TVHW_VO_CONFIG_PARAM config{};
    config.mode = TVHW_VO_MODE_STILL;
    config.width = width;
    config.height = height;
    config.pixelFormat = TVHW_VO_PIXEL_FORMAT_STILL;
    return CALL(TVHW_VO_Config)(kOutput, &config);
}

Outcome takesPictures() {
    Steps steps;
    steps("open", open());
    steps("config 318x238", configure(318, 238));
    steps("config 642x362", configure(642, 362));
    steps("close", close());
    return steps.done();
}

Outcome opensTwice() {
    Steps steps;
    steps("open", open());
    steps("open", open());
    steps("config", configure(318, 238));
    steps("close", close());
    steps("config", configure(322, 242));
    steps("close", close());
    return steps.done();
}

/// What it answers to a close without an open is its own affair; that it opens then is not.
Outcome closesWhatIsClosed() {
    Steps steps;
    close();
    for (int round = 0; round < 2; ++round) {
        steps("open", open());
        steps("config", configure(318, 238));
        steps("close", close());
        close();
    }
    return steps.done();
}

/// A sink that is destroyed closes for itself: the other's pictures go on.
Outcome opensEachTime() {
    Steps steps;
    for (int round = 0; round < 100; ++round) {
        int const results[] = {open(), configure(318 + 2 * round, 238 + 2 * round), close()};
        if (results[0] != 0 || results[1] != 0 || results[2] != 0 || round == 99) {
            steps("rounds that went well before", results[0] == 0 && round == 99 ? 0 : round);
            steps("open", results[0]);
            steps("config", results[1]);
            steps("close", results[2]);
            break;
        }
    }
    return steps.done();
}

}  // namespace

Checks outputChecks() {
    return {
        {Level::kMust, "the-video-output-takes-pictures",
         "output 0 is opened, prepared for two sizes and closed", "0 for each step", takesPictures},
        {Level::kMust, "the-video-output-opens-twice",
         "output 0 is opened twice, prepared, closed once, prepared and closed", "0 for each step",
         opensTwice},
        {Level::kMust, "the-video-output-closes-what-is-closed",
         "output 0 is closed, whatever that answers, then opened, prepared and closed, twice over",
         "0 for each step but a close that no open came before", closesWhatIsClosed},
        {Level::kMust, "the-video-output-opens-each-time",
         "output 0 is opened, prepared and closed, 100 times", "0 for each step", opensEachTime},
    };
}

}  // namespace kvo::check
