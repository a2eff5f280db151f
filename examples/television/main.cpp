#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "Acts.h"
#include "fmt/core.h"
#include "host/HostPlatform.h"

namespace kvo::media::hardware::example {

namespace {

constexpr int kExitFailure = 1;   ///< The library or the platform did not do its part.
constexpr int kExitUnusable = 2;  ///< The command line or the clip is of no use.

constexpr char kDescription[] =
    R"(Plays the video of a file through the library on the host platform, and shows what comes of it:

  1  pixel mode: every picture decoded and copied out, the last one saved
  2  tunnel mode: the pictures go to a display port
  3  two players and one decoder core: the second takes it from the first
  4  television: the clip in windows of the panel, placed by the video scaler
  5  a still on the video output: the last picture of 1, which it brings along
  6  the clip, up to its first 300 pictures, recorded as AVC and as VP8
  7  three recorders and one encoder core: a live one takes it, and keeps it

CLIP is any file that libavformat reads whose video is AVC, HEVC, VP8, VP9, AV1, VVC, MPEG-2,
MPEG-4, H.263 or Motion JPEG, as far as libavcodec decodes it.
)";

constexpr char kFooter[] = R"(
KVO_MEDIA_LOG_LEVEL=0..3 in the environment prints the library's log, 3 being all of it.
Exit status: 0 when all of it happened, 1 when something else did or the output cannot be written,
2 when the command line or the clip cannot be used.)";

constexpr std::array kActs{playPixels, playTunnel, loseCore,         playOnPanel,
                           showStill,  recordClip, contendForEncoder};

struct Options {
    std::string clip;
    std::string output = "demo-output";
    unsigned int seconds = 0;        ///< 0: all of the clip.
    std::vector<unsigned int> acts;  ///< Empty: all.
};

/// Describes the command line to `app`, which writes what it reads to `options`.
void describe(CLI::App& app, Options& options) {
    constexpr unsigned int kMostSeconds = 1'000'000;
    app.add_option("CLIP", options.clip, "the file to play")->required()->type_name("");
    app.add_option("--seconds", options.seconds, "play only the first N seconds of the clip")
        ->check(CLI::Range(1U, kMostSeconds))
        ->type_name("N");
    app.add_option("--acts", options.acts, "do only these acts, as in 1,3,4")
        ->check(CLI::Range(std::size_t{1}, kActs.size()))
        ->delimiter(',')
        ->type_name("LIST");
    app.add_option("--output", options.output, "where pictures and recordings go; made if need be")
        ->capture_default_str()
        ->type_name("DIR");
    app.footer(kFooter);
    app.set_help_flag();
    app.add_flag_callback(
           "--help",
           [&app] {
               fmt::print("{}", app.help());
               requirePrinted();
               throw CLI::Success();
           },
           "print this")
        ->trigger_on_parse();
}

/// Begins an act with the host platform's own pool of cores, and without the library's log unless
/// it is asked for: the demo tells of failures itself, and what is refused on purpose is no news.
void resetPlatform() {
    host::reset();
    if (std::getenv("KVO_MEDIA_LOG_LEVEL") == nullptr) {
        host::setLogLevel(-1);
    }
}

/// Does the acts. One that fails does not keep the others from being done.
void perform(Options const& options) {
    Demonstration demo;
    demo.progress.begin("0 counting the pictures of " + options.clip);
    demo.clip = inspectClip(options.clip, {0, static_cast<double>(options.seconds)},
                            [&](unsigned int pictures) {
                                demo.progress.update(std::to_string(pictures) + " pictures");
                            });
    demo.progress.end(std::to_string(demo.clip.frames) + " of " + demo.clip.codecName);
    demo.outputDirectory = options.output;
    std::error_code error;
    std::filesystem::create_directories(options.output, error);
    require(!error, "cannot make the directory " + options.output + ": " + error.message());

    unsigned int failures = 0;
    for (unsigned int act = 1; act <= kActs.size(); ++act) {
        auto const& chosen = options.acts;
        if (!chosen.empty() && std::find(chosen.begin(), chosen.end(), act) == chosen.end()) {
            continue;
        }
        resetPlatform();
        try {
            kActs[act - 1](demo);
        } catch (Failure const& failure) {
            ++failures;
            demo.rows.push_back({demo.progress.step(), "", "", "", "", "", failure.what()});
            demo.progress.end(std::string("failed: ") + failure.what());
        }
    }
    printSummary(demo);
    require(failures == 0, std::to_string(failures) + " of the acts did not go as expected");
}

int run(int argc, char** argv) {
    av_log_set_level(AV_LOG_QUIET);
    std::signal(SIGPIPE, SIG_IGN);  // A reader that has gone is an error like a full disk.
    CLI::App app(kDescription, "tvhw_demo");
    Options options;
    describe(app, options);
    try {
        // A file that is opened must not get the number of a standard output that is closed.
        require(fcntl(STDOUT_FILENO, F_GETFD) != -1, "standard output is closed");
        app.parse(argc, argv);
        perform(options);
        return 0;
    } catch (CLI::Success const&) {
        return 0;
    } catch (CLI::ParseError const& error) {
        std::cerr << "tvhw_demo: " << error.what() << "; --help tells more\n";
        return kExitUnusable;
    } catch (UnusableFile const& error) {
        std::cerr << "tvhw_demo: " << error.what() << '\n';
        return kExitUnusable;
    } catch (std::exception const& error) {
        std::cerr << "tvhw_demo: failed: " << error.what() << '\n';
        return kExitFailure;
    }
}

}  // namespace

}  // namespace kvo::media::hardware::example

int main(int argc, char** argv) { return kvo::media::hardware::example::run(argc, argv); }
