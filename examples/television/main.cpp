#include <fcntl.h>
#include <getopt.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <set>
#include <string>
#include <system_error>

#include "Acts.h"
#include "Libav.h"
#include "host/HostPlatform.h"

namespace kvo::demo {

namespace {

constexpr int kExitFailure = 1;   ///< The library or the platform did not do its part.
constexpr int kExitUnusable = 2;  ///< The command line or the clip is of no use.

constexpr char kHelp[] =
    R"(Usage: tvhw_demo [OPTION]... CLIP
Plays the video of a file through the library on the host platform, and shows what comes of it:

  1  pixel mode: every picture decoded and copied out, the last one saved
  2  tunnel mode: the pictures go to a display port
  3  two players and one decoder core: the second takes it from the first
  4  television: the clip in windows of the panel, placed by the video scaler
  5  a still on the video output: the last picture of 1, which it brings along
  6  the clip, up to its first 300 pictures, recorded as AVC and as VP8
  7  three recorders and one encoder core: a live one takes it, and keeps it

CLIP is any file that libavformat reads whose video is AVC, HEVC, VP8, VP9, AV1, VVC, MPEG-2,
MPEG-4, H.263 or Motion JPEG, as far as libavcodec decodes it.

  --seconds N   play only the first N seconds of the clip
  --acts LIST   do only these acts, as in 1,3,4
  --output DIR  where pictures and recordings go; made if need be (default: demo-output)
  --help        print this

KVO_MEDIA_LOG_LEVEL=0..3 in the environment prints the library's log, 3 being all of it.
Exit status: 0 when all of it happened, 1 when something else did or the output cannot be written,
2 when the command line or the clip cannot be used.
)";

constexpr std::array kActs{playPixels, playTunnel, loseCore,         playOnPanel,
                           showStill,  recordClip, contendForEncoder};

struct Options {
    bool help = false;
    std::string clip;
    std::string output = "demo-output";
    unsigned int seconds = 0;     ///< 0: all of the clip.
    std::set<unsigned int> acts;  ///< Empty: all.
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

/// Reads a number from 1 to `largest`.
unsigned int numberIn(std::string const& option, std::string const& text, unsigned int largest) {
    unsigned int number = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < 1 ||
        number > largest) {
        throw UsageError(option + " takes numbers from 1 to " + std::to_string(largest) +
                         ", not '" + text + "'");
    }
    return number;
}

std::set<unsigned int> actsIn(std::string const& list) {
    std::set<unsigned int> acts;
    for (std::string::size_type begin = 0; begin <= list.size();) {
        auto const end = std::min(list.find(',', begin), list.size());
        acts.insert(numberIn("--acts", list.substr(begin, end - begin), kActs.size()));
        begin = end + 1;
    }
    return acts;
}

Options parse(int argc, char** argv) {
    constexpr unsigned int kMostSeconds = 1'000'000;
    option const known[] = {{"acts", required_argument, nullptr, 'a'},
                            {"help", no_argument, nullptr, 'h'},
                            {"output", required_argument, nullptr, 'o'},
                            {"seconds", required_argument, nullptr, 's'},
                            {nullptr, 0, nullptr, 0}};
    Options options;
    opterr = 0;
    for (int choice = 0; (choice = getopt_long(argc, argv, ":", known, nullptr)) != -1;) {
        switch (choice) {
            case 'a':
                options.acts = actsIn(optarg);
                break;
            case 'h':
                options.help = true;
                return options;
            case 'o':
                options.output = optarg;
                break;
            case 's':
                options.seconds = numberIn("--seconds", optarg, kMostSeconds);
                break;
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

void inspect(Show& show, Options const& options) {
    show.progress.begin("0 counting the pictures of " + options.clip);
    show.clip = inspectClip(options.clip, options.seconds,
                            [&](unsigned int pictures) { show.progress.update(pictures, 0); });
    std::string outcome = std::to_string(show.clip.frames) + " of " + show.clip.codecName;
    if (show.clip.undecodable + show.clip.damaged > 0) {
        outcome += "; it is damaged: " + std::to_string(show.clip.undecodable) +
                   " coded frames give no picture, " + std::to_string(show.clip.damaged) +
                   " pictures have faults";
    }
    show.progress.end(outcome);
}

/// Does the acts. One that fails does not keep the others from being done.
void perform(Options const& options) {
    Show show;
    show.outputDirectory = options.output;
    inspect(show, options);
    makeDirectory(options.output);

    unsigned int failures = 0;
    for (unsigned int act = 1; act <= kActs.size(); ++act) {
        if (!options.acts.empty() && options.acts.count(act) == 0) {
            continue;
        }
        resetPlatform();
        try {
            kActs[act - 1](show);
        } catch (DemoFailure const& failure) {
            ++failures;
            show.rows.push_back({show.progress.step(), "", "", "", "", "", failure.what()});
            show.progress.end(std::string("failed: ") + failure.what());
        }
    }
    printSummary(show);
    require(failures == 0, std::to_string(failures) + " of the acts did not go as expected");
}

int run(int argc, char** argv) {
    av_log_set_level(AV_LOG_QUIET);
    std::signal(SIGPIPE, SIG_IGN);  // A reader that has gone is an error like a full disk.
    try {
        Options const options = parse(argc, argv);
        // A file that is opened must not get the number of a standard output that is closed.
        require(fcntl(STDOUT_FILENO, F_GETFD) != -1, "standard output is closed");
        if (options.help) {
            std::cout << kHelp;
            requirePrinted();
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
