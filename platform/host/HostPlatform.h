#pragma once

#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kvo/media/hardware/Export.h"

/// The controls of the host platform: what a test, a demo or an integrator sets, breaks and reads
/// back. The library itself knows nothing of it. Every operation may be called from any thread.
/// With the service's resource manager the pool is not this process's own: setPool(), forceGrant(),
/// crmClients() and reclaim() throw std::logic_error then, and reset() leaves the pool alone.
namespace kvo::host {

/// Returns everything to its first state: pool, panel, properties, faults and log level as the
/// environment sets them, and no other policy, forced grant, memory handle or journal. Clients,
/// channels and outputs that are open stay open.
KVO_MEDIA_EXPORT void reset();

// --- The journal: what the library did, in order.

/// One thing that happened. `text` alone tells it in full, except where a log line came from.
struct JournalEntry {
    enum class Kind { kPlatformCall, kLogLine, kNote };

    Kind kind = Kind::kNote;
    /// A call with its arguments as "TVHW_CRM_ClientInit(VDC, 0, 1)", a client being named by its
    /// unique id and a record by the fields in use; a log line as
    /// "2 VideoClient acquireResources: core_type: 801", a note as given.
    std::string text;
    std::string file;  ///< Of a log line: the path given by the logger.
    int line = 0;      ///< Of a log line.
};

/// Empties the journal and records from now on. Nothing is recorded before the first call.
KVO_MEDIA_EXPORT void startJournal();

/// Stops recording and returns what was recorded since startJournal.
KVO_MEDIA_EXPORT std::vector<JournalEntry> stopJournal();

/// Puts an entry of the caller's own into the journal, to see where it falls among the others.
KVO_MEDIA_EXPORT void note(std::string text);

/// Prints the log lines of every tag up to `level`; -1 prints none. The levels at the start are
/// those of the environment variable KVO_MEDIA_LOG_LEVEL, else 1: a level, or a list of TAG:LEVEL
/// in which "*" stands for all other tags. Level 4 adds the platform calls (tag HostPlatform) and
/// the calls of codecs (tag Codec). Lines have logcat's "threadtime" form, priorities E, W, I, D
/// and V for levels 0 to 4, and go to standard error or, appended, to the file that
/// KVO_MEDIA_LOG_FILE names. A value of either variable that cannot be used ends the process with
/// status 2. tvhw-log reads what is printed.
KVO_MEDIA_EXPORT void setLogLevel(int level);

// --- Faults: platform calls that fail.

/// Makes call number `nth` from now, the next being 1, of `operation` ("TVHW_CRM_ClientInit"; "*"
/// counts all calls) return `code` instead of its own result. A call that fails in this way does
/// nothing, except that TVHW_CRM_ClientReleaseResource, TVHW_CRM_ClientFree and TVHW_VSC_Close give
/// back all the same, since their caller has no second try; a failed allowsForcedAcquire denies.
/// Faults add up until they have happened or reset() is called. Throws std::invalid_argument, and
/// changes nothing, for call 0 and for an operation that is not the platform's.
KVO_MEDIA_EXPORT void failCall(std::string operation, int code, std::uint64_t nth = 1);

/// Returns the number of platform calls since the start of the process.
KVO_MEDIA_EXPORT std::uint64_t platformCallCount();

// --- The resource manager.

/// One codec core of the pool.
struct CodecCore {
    int type = 1;  ///< 1 to 4, as the manager reports it.
    bool encoder = false;
    int maxWidth = 3840;   ///< Pixels.
    int maxHeight = 2160;  ///< Pixels.
};

/// Replaces the pool. A client that holds a core of the old pool keeps it.
KVO_MEDIA_EXPORT void setPool(std::vector<CodecCore> const& cores);

/// Values that every description of a held resource reports instead of its own; a field without a
/// value stays as it is.
struct ForcedGrant {
    std::optional<int> core;
    std::optional<int> videoPort;
    std::optional<int> maxWidth;
    std::optional<int> maxHeight;
};
/// Replaces the forced values.
KVO_MEDIA_EXPORT void forceGrant(ForcedGrant grant);

/// An open client of the manager and what it holds.
struct CrmClient {
    int uniqueId = 0;
    std::string name;
    std::uintptr_t cookie = 0;
    int core = 0;       ///< Type of the core it holds, 0 for none.
    int videoPort = 0;  ///< Display port it holds, counted from 1; 0 for none.
};
/// Returns the open clients, oldest first.
KVO_MEDIA_EXPORT std::vector<CrmClient> crmClients();

/// Returns tables for people: each core and display port with its size and holder, since when it is
/// held and whether it is being reclaimed, and each request that waits. The service of the resource
/// manager prints the same.
KVO_MEDIA_EXPORT std::string describe();

/// Reclaims from the client with this unique id, on a thread of its own. The future yields the
/// client's answer, or -1 when there is no such client. What the client holds is taken when the
/// answer is 1. A future that is dropped waits for the answer there and then.
[[nodiscard]] KVO_MEDIA_EXPORT std::future<int> reclaim(int uniqueId);

// --- The panel and the video scaler.

/// What the picture is shown on.
struct Panel {
    int width = 1920;      ///< Pixels.
    int height = 1080;     ///< Pixels.
    bool readable = true;  ///< False: its size is there, but cannot be asked for.
};

/// Replaces the panel. What the scaler shows on it stays as it is.
KVO_MEDIA_EXPORT void setPanel(Panel panel);

/// Returns the panel as it is set.
KVO_MEDIA_EXPORT Panel panel();

/// Says whether the last to ask the platform for the panel's size got that of now.
KVO_MEDIA_EXPORT bool panelIsKnown();

/// The scaler's channels count from 0.
inline constexpr unsigned int kScalerChannels = 2;

/// What a scaler channel was told since it was opened; the first state again once it is closed.
struct ScalerChannel {
    /// Where pictures come from, as it was connected.
    struct Source {
        int type = 0;
        int port = 0;
    };
    /// A rectangle in pixels.
    struct Window {
        int x = 0;
        int y = 0;
        int width = 0;
        int height = 0;
    };

    bool opened = false;
    std::optional<Source> source;  ///< The connected one.
    bool adaptive = false;
    bool blank = true;
    /// The part of the source's picture to show: in pixels of the source or, when
    /// `inputInPanelPixels`, as if the whole picture filled the panel.
    Window input;
    bool inputInPanelPixels = false;
    Window output;  ///< Pixels of the panel.
};

/// Returns the state of a channel below kScalerChannels.
KVO_MEDIA_EXPORT ScalerChannel scalerChannel(unsigned int index);

// --- The video output and the memory it shows.

/// Bytes that a platform record can refer to by a handle of 32 bits.
using Memory = std::shared_ptr<std::vector<unsigned char> const>;

/// Gives `memory`, which must not be null, a handle: never 0 or one given before.
KVO_MEDIA_EXPORT std::uint32_t registerMemory(Memory memory);

/// Forgets a handle. A picture that is being shown keeps its memory.
KVO_MEDIA_EXPORT void unregisterMemory(std::uint32_t handle);

/// A picture on the video output.
struct ShownPicture {
    std::uint32_t handle = 0;
    Memory memory;   ///< Lines of pixels of four bytes: red, green, blue and one that is not used.
    int x = 0;       ///< Pixels.
    int y = 0;       ///< Pixels.
    int width = 0;   ///< Pixels.
    int height = 0;  ///< Pixels.
    int stride = 0;  ///< Bytes from one line to the next.
};

/// What video output 0 was told since it was opened; the first state again once it is closed.
struct VideoOutput {
    int opens = 0;   ///< How often it was opened and not closed.
    int width = 0;   ///< Of the largest picture, in pixels; 0 before a configuration.
    int height = 0;  ///< Of the largest picture, in pixels; 0 before a configuration.
    std::optional<ShownPicture> picture;
};
KVO_MEDIA_EXPORT VideoOutput videoOutput();

// --- The system.

/// Sets a system property; without a value, removes it.
KVO_MEDIA_EXPORT void setProperty(std::string const& name, std::optional<int> value);

/// Decides for a process id whether it may take another client's core. At first the
/// environment's priorities decide: below 0 a process may not.
KVO_MEDIA_EXPORT void setForcedAcquirePolicy(std::function<bool(int)> policy);

}  // namespace kvo::host
