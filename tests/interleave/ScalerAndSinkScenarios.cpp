#include <array>
#include <memory>

#include "../ScalerStart.h"
#include "Platform.h"
#include "tvhw/ImageSinkTvhwImpl.h"
#include "tvhw/VideoScalerClientTvhwImpl.h"

namespace interleave {

namespace {

using namespace kvo::media::hardware;

constexpr char kIsCalled[] = "a callback is called";

struct Listening {
    bool isOver = false;
    bool isCalled = false;
};

class Listener : public IVideoScalerClient::Callback {
public:
    explicit Listener(Listening& listening) : mListening(listening) {}
    ~Listener() override { expect(!mListening.isCalled, "a callback dies that is being called"); }

    void onBbdRegion(Region const& /*region*/) override {
        expect(!mListening.isOver, "a callback is called that was replaced");
        expect(locksHeld() == 1, "a callback is called with %zu locks held", locksHeld());
        mListening.isCalled = true;
        point("onBbdRegion");
        seen(kIsCalled);
        mListening.isCalled = false;
    }

private:
    Listening& mListening;
};

}  // namespace

void addScalerAndSinkScenarios(std::vector<Scenario>& all) {
    add(all, "scaler-callback", {kIsCalled}, [] {
        std::array<Listening, 2> listening;
        VideoScalerClientTvhwImpl scaler(0);
        scaler.connect({});
        auto first = std::make_shared<Listener>(listening[0]);
        auto const second = std::make_shared<Listener>(listening[1]);
        scaler.setCallback(first);
        start("reporter", [&] {
            scaler.bbdCallbackRegion({});
            scaler.bbdCallbackRegion({});
        });
        start("replacer", [&] {
            std::size_t index = 0;
            for (auto const& next : {second, std::shared_ptr<Listener>()}) {
                scaler.setCallback(next);
                expect(!listening[index].isCalled, "a callback is called that is being replaced");
                listening[index++].isOver = true;
            }
        });
        start("dropper", [&] { first.reset(); });
        joinAll();
    });
    // What any thread may do, each of it twice, beside the owner.
    add(all, "scaler-any-thread", {kIsCalled}, [] {
        Listening listening;
        VideoScalerClientTvhwImpl scaler(0);
        auto const listener = std::make_shared<Listener>(listening);
        scaler.setCallback(listener);
        for (int count = 0; count < 2; ++count) {
            start("reporter", [&] { scaler.bbdCallbackRegion({}); });
            start("setter", [&] { scaler.setCallback(listener); });
        }
        start("owner", [&] {
            scaler.connect({});
            scaler.updateRegion({});
            scaler.disconnect();
        });
        joinAll();
    });
    // The first attempt fails.
    add(all, "two-scalers", {}, [] {
        platform().failing = "VSC_Initialize";
        for (unsigned int channel = 0; channel < 2; ++channel) {
            start("client", [=] {
                VideoScalerClientTvhwImpl scaler(channel);
                expect(scaler.checkOpen(), "the scaler is not opened");
            });
        }
        joinAll();
        int const times = platform().scalerInitialisations;
        expect(times == 1, "the scaler is initialised %d times", times);
    });
    // The first attempt fails.
    add(all, "two-sinks", {}, [] {
        platform().failing = "VO_Open";
        for (int sink = 0; sink < 2; ++sink) {
            start("sink", [] {
                ImageSinkTvhwImpl shows;
                expect(shows.checkOpen(), "the output is not opened");
            });
        }
        joinAll();
    });
}

}  // namespace interleave
