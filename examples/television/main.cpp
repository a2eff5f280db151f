#include <getopt.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>

#include "DecoderActs.h"
#include "EncoderActs.h"
#include "Libav.h"
#include "PanelActs.h"
#include "Show.h"
#include "host/HostPlatform.h"

namespace kvo::demo {

namespace {

constexpr int kExitFailure = 1;   ///< The library or the platform did not do its part.
constexpr int kExitUnusable = 2;  ///< The command line or the clip is of no use.

constexpr char kHelp[] =
    R"(Usage: tvhw_demo [--output DIR] CLIP
Plays the video of a file through the library on the host platform, and shows what comes of it:

  1  pixel mode: every picture decoded and copied out, the last one saved
  2  tunnel mode: the pictures go to a display port
  3  two players and one decoder core: the second takes it from the first
  4  television: the clip in windows of the panel, placed by the video scaler
  5  a still on the video output
  6  the clip recorded as AVC and as VP8
  7  three recorders and one encoder core: a live one takes it, and keeps it

CLIP is any file that libavformat reads whose video is AVC, HEVC, VP8, VP9, AV1, VVC, MPEG-2,
MPEG-4, H.263 or Motion JPEG, as far as libavcodec decodes it.

  --output DIR  where pictures and recordings go; made if need be (default: demo-output)
  --help        print this

KVO_MEDIA_LOG_LEVEL=0..3 in the environment prints the library's log, 3 being all of it.
Exit status: 0 when all of it happened, 1 when something else did, 2 when the command line or the
clip cannot be used.
)";

struct Options {
    bool help = false;
    std::string clip;
    std::string output = "demo-output";
};

/// The command line is of no use; the message says why.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Returns the option that getopt_long has just refused: a long one as it was given, and of short
/// ones, which may stand together, the one.
std::string refusedOption(char** argv) {
    std::string const word = argv[optind - 1];
    return word.rfind("--", 0) == 0 ? word : std::string("-") + static_cast<char>(optopt);
}

Options parse(int argc, char** argv) {
    option const known[] = {{"output", required_argument, nullptr, 'o'},
                            {"help", no_argument, nullptr, 'h'},
                            {nullptr, 0, nullptr, 0}};
    Options options;
    opterr = 0;
    for (int choice = 0; (choice = getopt_long(argc, argv, ":", known, nullptr)) != -1;) {
        switch (choice) {
            case 'o':
                options.output = optarg;
                break;
            case 'h':
                options.help = true;
                return options;
            case ':':
                throw UsageError(std::string(argv[optind - 1]) + " needs a value");
            default:
                throw UsageError("unknown option " + refusedOption(argv));
        }
    }
    if (optind + 1 != argc) {
        throw UsageError(optind == argc ? "no clip given" : "more than one clip given");
    }
    options.clip = argv[optind];
    return options;
}

void makeDirectory(std::string const& path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error) {
        throw UsageError("cannot make the directory " + path + ": " + error.message());
    }
}

/// Begins an act with the host platform's own pool of cores, and without the library's log unless
/// it is asked for: the demo tells of failures itself, and what is refused on purpose is no news.
void resetPlatform() {
    host::reset();
    if (std::getenv("KVO_MEDIA_LOG_LEVEL") == nullptr) {
        host::setLogLevel(-1);
    }
}

void perform(Options const& options) {
    Show show;
    show.outputDirectory = options.output;
    show.progress.begin("0 counting the pictures of " + options.clip);
    show.clip = inspectClip(options.clip,
                            [&](unsigned int pictures) { show.progress.update(pictures, 0); });
    show.progress.end(std::to_string(show.clip.frames) + " of " + show.clip.codecName);
    makeDirectory(options.output);

    for (auto* const act : {playPixels, playTunnel, loseCore, playOnPanel, showStill, recordClip,
                            contendForEncoder}) {
        resetPlatform();
        try {
            act(show);
        } catch (DemoFailure const& failure) {
            throw DemoFailure(show.progress.step() + ": " + failure.what());
        }
    }
    printSummary(show.rows, show.files);
}

int run(int argc, char** argv) {
    av_log_set_level(AV_LOG_QUIET);
    try {
        Options const options = parse(argc, argv);
        if (options.help) {
            std::cout << kHelp;
            return 0;
        }
        perform(options);
        return 0;
    } catch (UsageError const& error) {
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

}  // namespace kvo::demo

int main(int argc, char** argv) { return kvo::demo::run(argc, argv); }
