#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>

#include "ThreadAnnotations.h"
#include "kvo/media/hardware/Export.h"
#include "tvhw_crm.h"

/// Weak references under integer ids: a foreign thread holds a number, which leads to its object
/// for as long as that lives. Every operation may be called from any thread.
class ReferenceHolder {
public:
    ReferenceHolder() = default;
    ReferenceHolder(ReferenceHolder const&) = delete;
    ReferenceHolder& operator=(ReferenceHolder const&) = delete;

    /// Forgets everything under the lock, so that a reclaim that arrives, or a client that closes,
    /// later in the exit of the process finds an empty map. That holds where a destroyed mutex can
    /// still be locked; elsewhere nobody may come so late: see docs/porting.md.
    ~ReferenceHolder() TVHW_EXCLUDES(mMutex);

    /// Registers `object` and returns its new id: 1, 2, ... and never 0 or one issued before, up to
    /// 2^32 - 1 registrations.
    unsigned int holdWeakReference(std::shared_ptr<void> const& object) TVHW_EXCLUDES(mMutex);

    /// Forgets `id`; one that is not registered is ignored.
    void release(unsigned int id) TVHW_EXCLUDES(mMutex);

    /// Returns the number of registrations, dead ones included.
    [[nodiscard]] std::size_t size() TVHW_EXCLUDES(mMutex) {
        std::lock_guard<std::mutex> const lock(mMutex);
        return mReferences.size();
    }

    /// Returns the object under `id`, which must have been registered as a T, or null when there is
    /// none or it has died.
    template <typename T>
    std::shared_ptr<T> lock(unsigned int id) TVHW_EXCLUDES(mMutex) {
        std::lock_guard<std::mutex> const lock(mMutex);
        auto const reference = mReferences.find(id);
        if (reference == mReferences.end()) {
            return nullptr;
        }
        return std::static_pointer_cast<T>(reference->second.lock());
    }

private:
    std::mutex mMutex;
    std::map<unsigned int, std::weak_ptr<void>> mReferences TVHW_GUARDED_BY(mMutex);
};

/// One client connection to the resource manager, for one codec wrapper: asks for a codec core or a
/// display port, reads back what was granted, and gives it back.
///
/// The object has no lock; its operations are the owner's to serialise. Results are 0 for
/// success, -1 when the manager's call failed (logged once, with the manager's code), and -2,
/// silently and without any call, when there is no connection: before initialize() has succeeded
/// and after UnInitialize().
class ResourceClient : public std::enable_shared_from_this<ResourceClient> {
public:
    /// The owner of a resource client, as the resource manager's reclaim reaches it.
    class Reclaimable {
    public:
        Reclaimable() = default;
        Reclaimable(Reclaimable const&) = delete;
        Reclaimable& operator=(Reclaimable const&) = delete;
        virtual ~Reclaimable() = default;

        /// Stops using the resources. Called on the resource manager's thread with no lock held,
        /// while the caller keeps the owner alive. Returns true when the manager may take the
        /// resources, false when the owner refuses and goes on using them.
        virtual bool reclaim() = 0;
    };

    /// The number of display ports; a port index is valid from 0 to one less.
    KVO_MEDIA_EXPORT static int const sMaxVdoPort;

    /// Finds the resource client that a reclaim is meant for.
    KVO_MEDIA_EXPORT static ReferenceHolder sReferenceHolder;

    /// Returns a connected resource client of `owner`, which it does not keep alive, or null when
    /// the resource manager cannot be reached.
    static std::shared_ptr<ResourceClient> open(std::shared_ptr<Reclaimable> const& owner);

    /// Makes no call. Objects are owned by std::shared_ptr.
    explicit ResourceClient(std::shared_ptr<Reclaimable> const& owner);
    ResourceClient(ResourceClient const&) = delete;
    ResourceClient& operator=(ResourceClient const&) = delete;

    /// Gives back everything and disconnects, if connected. May run on the reclaim's thread.
    virtual ~ResourceClient();

    /// Registers for reclaims and connects. Returns 0, or -1 and leaves nothing behind.
    int initialize();

    /// Lets go of what it holds, then requests a codec core for a stream of this MIME type (not
    /// null, may be empty), size in pixels and frames per second. `tryOnly` selects the manager's
    /// try form. Returns 0 also when the request is refused: getResource() tells.
    KVO_MEDIA_EXPORT int acquireResource(char const* mime, int width, int height, int framerate,
                                         bool isEncoder, bool extraFlag, bool tryOnly);

    /// Asks for a display port, besides what is held, in the plain or the try form. Returns 0 also
    /// when the request is refused: getDisplayResource() tells.
    KVO_MEDIA_EXPORT int acquireDisplayResource(bool tryOnly);

    /// Writes the core type as the manager numbers it, the display port (from 1; below 1 for none)
    /// and the core's largest size in pixels. On failure, also when nothing is held, writes
    /// nothing.
    KVO_MEDIA_EXPORT int getResource(int* core, int* port, int* maxWidth, int* maxHeight);

    /// Writes the display port, as getResource() does.
    KVO_MEDIA_EXPORT int getDisplayResource(int* port);

    /// Clears a set of display ports.
    KVO_MEDIA_EXPORT int clearDisplayResource(_TVHW_CRM_VIDEO_PORT ports);

    /// Writes the id by which the resource manager knows this client; -1 when its call fails.
    KVO_MEDIA_EXPORT int getUniqueId(int* id);

    /// Gives back everything held; the connection stays.
    KVO_MEDIA_EXPORT int releaseResource();

    /// Disconnects for good; a reclaim that is looked up later finds nothing. Always returns 0.
    KVO_MEDIA_EXPORT int UnInitialize();

    /// The resource manager's callback. `cookie` carries the id of a resource client in
    /// sReferenceHolder. Returns the answer of its owner's reclaim() as 1 or 0, and 1 when the
    /// resource client or its owner is gone. The last reference to either may die in this call, and
    /// the manager then be called back from it.
    KVO_MEDIA_EXPORT static int OnReclaim(_TVHW_CRM_RECLAIM_PARAM const* param, void* cookie);

private:
    TVHW_CRM_HANDLE mCrmClient = nullptr;
    std::weak_ptr<Reclaimable> mReclaimable;
    unsigned int mReferenceId = 0;  ///< Id in sReferenceHolder; 0 when not registered.
};

/// Gives back what `client` holds and disconnects it; the object stays alive, closed. Null does
/// nothing.
static inline void releaseResources(std::shared_ptr<ResourceClient> const& client) {
    if (client != nullptr) {
        client->releaseResource();
        client->UnInitialize();
    }
}
