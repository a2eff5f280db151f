#include "LiveWindow.h"

#include <utility>

namespace kvo::media::hardware::example {

namespace {

/// The part of the window below the panel, in pixels of the panel.
constexpr int kEdge = 360;

void requireSdl(bool succeeded) {
    require(succeeded, std::string("there is no display to show the panel on: ") + SDL_GetError());
}

SDL_Rect rectangle(Window const& window) {
    return {window.x, window.y, window.width, window.height};
}

}  // namespace

LiveWindow::LiveWindow(std::shared_ptr<DisplayPorts> ports) : mPorts(std::move(ports)) {
    host::Panel const panel = host::panel();
    // Without a desktop the library would draw where nobody sees it.
    bool const hasDisplay = SDL_getenv("DISPLAY") != nullptr ||
                            SDL_getenv("WAYLAND_DISPLAY") != nullptr ||
                            SDL_getenv("SDL_VIDEODRIVER") != nullptr;
    require(hasDisplay, "there is no display to show the panel on");
    requireSdl(SDL_Init(SDL_INIT_VIDEO) == 0);
    SDL_SetHint(SDL_HINT_RENDER_SCALE_QUALITY, "linear");
    int const height = panel.height + kEdge;
    mWindow.reset(SDL_CreateWindow("tvhw-play", SDL_WINDOWPOS_UNDEFINED, SDL_WINDOWPOS_UNDEFINED,
                                   panel.width / 2, height / 2, SDL_WINDOW_RESIZABLE));
    requireSdl(mWindow != nullptr);
    mRenderer.reset(SDL_CreateRenderer(mWindow.get(), -1, 0));
    requireSdl(mRenderer != nullptr &&
               SDL_RenderSetLogicalSize(mRenderer.get(), panel.width, height) == 0);
}

LiveWindow::~LiveWindow() {
    mText.reset();
    mRenderer.reset();
    mWindow.reset();
    SDL_Quit();
}

bool LiveWindow::draw(std::string const& holders) {
    for (SDL_Event event; SDL_PollEvent(&event) != 0;) {
        if (event.type == SDL_QUIT) {
            return false;
        }
    }
    host::Panel const panel = host::panel();
    SDL_Rect const whole{0, 0, panel.width, panel.height};
    SDL_Rect const edge{0, panel.height, panel.width, kEdge};
    SDL_SetRenderDrawColor(mRenderer.get(), 0x20, 0x20, 0x20, SDL_ALPHA_OPAQUE);
    SDL_RenderClear(mRenderer.get());
    SDL_SetRenderDrawColor(mRenderer.get(), 0x2a, 0x40, 0x66, SDL_ALPHA_OPAQUE);
    SDL_RenderFillRect(mRenderer.get(), &whole);
    forEachWindow(*mPorts, [this](ShownWindow const& window) { drawWindow(window); });
    if (holders != mHolders) {
        FramePtr const text = drawText(holders, {edge.w, edge.h});
        mText.reset(SDL_CreateTexture(mRenderer.get(), SDL_PIXELFORMAT_RGB24,
                                      SDL_TEXTUREACCESS_STATIC, edge.w, edge.h));
        SDL_UpdateTexture(mText.get(), nullptr, text->data[0], text->linesize[0]);
        mHolders = holders;
    }
    SDL_RenderCopy(mRenderer.get(), mText.get(), nullptr, &edge);
    SDL_RenderPresent(mRenderer.get());
    return true;
}

void LiveWindow::drawWindow(ShownWindow const& window) {
    FramePtr const& picture = window.picture;
    SDL_Rect const output = rectangle(window.output);
    if (picture == nullptr) {
        SDL_SetRenderDrawColor(mRenderer.get(), 0, 0, 0, SDL_ALPHA_OPAQUE);
        SDL_RenderFillRect(mRenderer.get(), &output);
        return;
    }
    TexturePtr const texture(SDL_CreateTexture(mRenderer.get(), SDL_PIXELFORMAT_IYUV,
                                               SDL_TEXTUREACCESS_STREAMING, picture->width,
                                               picture->height));
    SDL_UpdateYUVTexture(texture.get(), nullptr, picture->data[0], picture->linesize[0],
                         picture->data[1], picture->linesize[1], picture->data[2],
                         picture->linesize[2]);
    SDL_Rect const input = rectangle(window.input);
    SDL_RenderCopy(mRenderer.get(), texture.get(), &input, &output);
}

}  // namespace kvo::media::hardware::example
