#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <thread>
#include <vector>

#include "LiveWindow.h"
#include "Playback.h"
#include "ProgressLine.h"
#include "fmt/core.h"

namespace kvo::media::hardware::example {

namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUnusable = 2;
constexpr int kExitLost = 3;
constexpr int kExitRefused = 4;

/// How often the players are looked at, and the live window is drawn.
constexpr std::chrono::milliseconds kEvery{20};

constexpr double kLeastSeconds = 0.001;     ///< Of --seconds.
constexpr double kMostSeconds = 1'000'000;  ///< Of --seconds and --from.

constexpr char kDescription[] =
    R"(Plays the video of files through the library: each takes a codec core, and in tunnel mode a
display port, from the resource manager, and decodes with libavcodec in place of the codec hardware.
FILE is any file that libavformat reads whose video is AVC, HEVC, VP8, VP9, AV1, VVC, MPEG-2,
MPEG-4, H.263 or Motion JPEG.
)";

constexpr char kFooter[] = R"(
The pictures of tunnel mode are on the panel of the host platform, those of the first two files in
windows that the video scaler places. KVO_HOST_POOL, KVO_HOST_PANEL and other settings of the host
platform apply; tvhw-run lets several programs share the cores.
Exit status: 0 when all files were played to their end, or the playing was ended by SIGINT, SIGTERM
or the live window; 1 when something failed, 2 when the command line or a file cannot be used, 3
when a core was lost, 4 when none, or no display port, was granted.)";

volatile std::sig_atomic_t gStop = 0;

struct Options {
    std::vector<std::string> files;
    Playback::Settings playback;
    bool pixel = false;
    bool isFast = false;
    bool isLive = false;
    std::vector<std::string> windows;
    std::string png;
};

Window windowFrom(std::string const& text) {
    Window window;
    int end = 0;
    std::sscanf(text.c_str(), "%5dx%5d+%5d+%5d%n", &window.width, &window.height, &window.x,
                &window.y, &end);
    host::Panel const panel = host::panel();
    if (end == 0 || static_cast<std::size_t>(end) != text.size() || window.width < 2 ||
        window.height < 2 || window.x < 0 || window.y < 0 ||
        window.x + window.width > panel.width || window.y + window.height > panel.height) {
        throw CLI::ValidationError(
            "--window", fmt::format("{} is no WxH+X+Y within the panel of {}x{}", text, panel.width,
                                    panel.height));
    }
    return window;
}

/// Returns a check that a number of seconds is at least `least`.
CLI::Validator secondsFrom(double least) {
    auto const refusal = [least](std::string const& text) -> std::string {
        double const seconds = std::strtod(text.c_str(), nullptr);
        // What is not a number is not in range either.
        bool const isInRange = seconds >= least && seconds <= kMostSeconds;
        return isInRange ? ""
                         : fmt::format("Value {} not in range {} to {}", text, least, kMostSeconds);
    };
    return {refusal, ""};
}

/// Describes the command line to `app`, which writes what it reads to `options`.
void describe(CLI::App& app, Options& options) {
    Playback::Settings& playback = options.playback;
    app.add_option("FILE", options.files, "the files to play, all at once")
        ->required()
        ->type_name("");
    auto* const pixel = app.add_flag("--pixel", options.pixel, "copy the pictures out");
    app.add_flag("--tunnel", "let the pictures go to a display port; done unless asked otherwise")
        ->excludes(pixel);
    auto* const window =
        app.add_option("--window", options.windows,
                       "the place of the first file's picture on the panel, then of the second's")
            ->type_name("WxH+X+Y")
            ->allow_extra_args(false)
            ->excludes(pixel);
    auto* const from = app.add_option("--from", playback.part.from, "begin at this second")
                           ->check(secondsFrom(0))
                           ->type_name("S");
    auto* const length =
        app.add_option("--seconds", playback.part.length, "play no more than these")
            ->check(secondsFrom(kLeastSeconds))
            ->type_name("S");
    app.add_flag("--loop", playback.player.loop, "begin again at the end, until ended");
    auto* const adaptive = app.add_flag("--adaptive", playback.player.adaptive,
                                        "ask for a core for pictures of changing size");
    app.add_flag("--fast", options.isFast, "play as fast as it goes, not at the file's own speed");
    auto* const insist = app.add_flag("--insist", playback.insists,
                                      "ask again for a core that is refused or lost, and go on");
    auto* const live = app.add_flag("--live", options.isLive,
                                    "show the panel in a window of the desktop, and who holds what")
                           ->excludes(pixel);
    auto* const png = app.add_option("--png", options.png,
                                     "at the end write the panel, or with --pixel the last picture")
                          ->type_name("OUT");
    auto* const record = app.add_option("--record", playback.recording,
                                        "copy the pictures out and record them through an encoder: "
                                        "as VP8 to a .webm file, else as AVC")
                             ->type_name("OUT");
    app.add_flag("--keep", playback.keepsEncoder,
                 "the recording's encoder refuses to give up its core, as one that streams live")
        ->needs(record);
    for (auto* const other : {window, from, length, adaptive, insist, live, png}) {
        record->excludes(other);
    }
    app.footer(kFooter);
    app.get_formatter()->column_width(24);
    app.get_formatter()->label("Excludes", "not with");
    app.set_help_flag("--help", "print this");
    app.set_version_flag("--version", "tvhw-play " TVHW_VERSION, "print the version");
}

/// Returns the places of `count` pictures on the panel that were not given any: side by side.
Window usualWindow(std::size_t index, std::size_t count) {
    host::Panel const panel = host::panel();
    int const width = count == 1 ? panel.width : panel.width / 2;
    if (width < 2 || panel.height < 2) {
        throw CLI::ValidationError(fmt::format("a panel of {}x{} has no room for the pictures",
                                               panel.width, panel.height));
    }
    return {static_cast<int>(index) * width, 0, width, panel.height};
}

/// Throws unless writing the outputs leaves the files to play as they are.
void requireNoOverwriting(Options const& options) {
    for (std::string const& output : {options.png, options.playback.recording}) {
        for (std::string const& file : options.files) {
            std::error_code ignored;  // Mostly that there is no output yet.
            if (std::filesystem::equivalent(output, file, ignored)) {
                throw CLI::ValidationError(output + " is a file to play, and would be overwritten");
            }
        }
    }
}

/// Prepares to play the files, with their windows.
std::vector<std::unique_ptr<Playback>> prepare(Options& options, FramePtr& lastPicture) {
    requireNoOverwriting(options);
    Player::Settings& player = options.playback.player;
    player.mode = options.pixel ? Player::Mode::kPixel : Player::Mode::kTunnel;
    player.inTime = !options.isFast;
    if (options.pixel && !options.png.empty()) {
        player.sink = [&lastPicture](AVFrame const& picture) {
            lastPicture.reset(av_frame_clone(&picture));
            return status::kSuccess;
        };
    }
    if (!options.pixel && !options.png.empty()) {
        options.playback.beforeRelease = [&lastPicture, ports = player.ports] {
            host::Panel const panel = host::panel();
            lastPicture = drawPanel(*ports, {0, 0, panel.width, panel.height}, "tvhw-play");
        };
    }
    std::size_t const count = options.files.size();
    if (count > 1 && (player.sink || !options.playback.recording.empty())) {
        throw CLI::ValidationError("--png with --pixel, and --record", "take one file only");
    }
    if (options.windows.size() > std::min<std::size_t>(count, host::kScalerChannels)) {
        throw CLI::ValidationError(
            "--window", fmt::format("{} windows, but {} files, and the scaler has {} channels",
                                    options.windows.size(), count, host::kScalerChannels));
    }
    std::vector<std::unique_ptr<Playback>> playbacks;
    for (std::size_t index = 0; index < count; ++index) {
        Playback::Settings settings = options.playback;
        if (index < host::kScalerChannels && !options.pixel && settings.recording.empty()) {
            settings.channel = static_cast<unsigned int>(index);
            settings.window = index < options.windows.size() ? windowFrom(options.windows[index])
                                                             : usualWindow(index, count);
        }
        playbacks.push_back(std::make_unique<Playback>(options.files[index], std::move(settings)));
    }
    return playbacks;
}

/// Plays all files until they are over. Returns the exit status.
int play(Options& options) {
    FramePtr lastPicture;
    options.playback.player.ports = std::make_shared<DisplayPorts>();
    std::vector<std::unique_ptr<Playback>> const playbacks = prepare(options, lastPicture);
    std::optional<LiveWindow> live;
    if (options.isLive) {
        live.emplace(options.playback.player.ports);
    }
    ProgressLine progress;
    progress.begin("tvhw-play");
    auto const isOver = [](auto const& playback) { return playback->isOver(); };
    while (gStop == 0 && !std::all_of(playbacks.begin(), playbacks.end(), isOver)) {
        std::string texts;
        for (auto const& playback : playbacks) {
            if (playback->isOver()) {
                continue;
            }
            std::string const news = playback->goOn();
            if (!news.empty()) {
                progress.end(playback->name() + ": " + news);
            }
            texts += (texts.empty() ? "" : "; ") + playback->progress();
        }
        progress.update(texts);
        if (live && !live->draw(host::describe())) {
            break;
        }
        std::this_thread::sleep_for(kEvery);
    }
    for (auto const& playback : playbacks) {
        if (!playback->isOver()) {
            progress.end(playback->name() + ": " + playback->end());
        }
    }
    if (lastPicture != nullptr) {
        writePng(options.png, *filtered({lastPicture.get()}, "[in0]scale=iw*sar:ih,setsar=1"));
    }
    constexpr std::array kStatuses{0, 0, 0, kExitLost, kExitRefused, kExitFailure};
    auto worst = Playback::State::kEnded;
    for (auto const& playback : playbacks) {
        worst = std::max(worst, playback->state());
    }
    return kStatuses.at(static_cast<std::size_t>(worst));
}

int run(int argc, char** argv) {
    av_log_set_level(AV_LOG_QUIET);
    std::signal(SIGPIPE, SIG_IGN);  // A reader that has gone is an error like a full disk.
    std::signal(SIGINT, [](int) { gStop = 1; });
    std::signal(SIGTERM, [](int) { gStop = 1; });
    CLI::App app(kDescription, "tvhw-play");
    Options options;
    describe(app, options);
    try {
        app.parse(argc, argv);
        return play(options);
    } catch (CLI::Success const& asked) {  // For help or the version.
        return app.exit(asked) == 0 && std::cout.flush() ? 0 : kExitFailure;
    } catch (CLI::ParseError const& error) {
        std::cerr << "tvhw-play: " << error.what() << "; --help tells more\n";
        return kExitUnusable;
    } catch (UnusableFile const& error) {
        std::cerr << "tvhw-play: " << error.what() << '\n';
        return kExitUnusable;
    } catch (std::exception const& error) {
        std::cerr << "tvhw-play: failed: " << error.what() << '\n';
        return kExitFailure;
    }
}

}  // namespace

}  // namespace kvo::media::hardware::example

int main(int argc, char** argv) { return kvo::media::hardware::example::run(argc, argv); }
