#pragma once

#include <SDL.h>

#include <memory>
#include <string>

#include "Panel.h"

namespace kvo::media::hardware::example {

/// The panel in a window of the desktop, as the scaler has it; below it who holds which core and
/// which port. All operations are for the thread that constructs it.
class LiveWindow {
public:
    /// Throws Failure where there is no display.
    explicit LiveWindow(std::shared_ptr<DisplayPorts> ports);
    ~LiveWindow();
    LiveWindow(LiveWindow const&) = delete;
    LiveWindow& operator=(LiveWindow const&) = delete;

    /// Draws what there is to see now, with `holders` below. Returns false when the user has closed
    /// the window.
    bool draw(std::string const& holders);

private:
    struct Destroy {
        void operator()(SDL_Window* window) const { SDL_DestroyWindow(window); }
        void operator()(SDL_Renderer* renderer) const { SDL_DestroyRenderer(renderer); }
        void operator()(SDL_Texture* texture) const { SDL_DestroyTexture(texture); }
    };
    using TexturePtr = std::unique_ptr<SDL_Texture, Destroy>;

    void drawWindow(ShownWindow const& window);

    std::shared_ptr<DisplayPorts> const mPorts;
    std::unique_ptr<SDL_Window, Destroy> mWindow;
    std::unique_ptr<SDL_Renderer, Destroy> mRenderer;
    std::string mHolders;  ///< What mText says.
    TexturePtr mText;
};

}  // namespace kvo::media::hardware::example
