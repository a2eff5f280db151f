#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include "Journal.h"
#include "kvo/media/hardware/ConfigurationKeys.h"
#include "tvhw/ImageSinkTvhwImpl.h"

namespace {

using namespace kvo::media::hardware;
using kvo::host::videoOutput;

Configuration config(std::int32_t width, std::int32_t height,
                     std::optional<std::int64_t> format = {}) {
    Configuration result;
    result.setInt32(key::kWidth, width);
    result.setInt32(key::kHeight, height);
    if (format) {
        result.setInt64(key::kColorFormat, *format);
    }
    return result;
}

class ImageSinkTest : public testing::Test {
protected:
    void TearDown() override {
        sink.reset();
        EXPECT_EQ(videoOutput().opens, 0);
        kvo::host::reset();
    }

    /// Expects `call` of the sink's `name` to return `status`, and the lines between its first and,
    /// without a failure, its last to be `body`.
    template <typename Call>
    void expect(std::string const& name, Call const& call, int status, Lines body) {
        std::string const detail = "3 ImageSink " + name + ": ";
        body.insert(body.begin(), detail + "+++ImageSink " + name + "+++");
        if (status == 0) {
            body.push_back(detail + "---ImageSink " + name + "---");
        }
        EXPECT_EQ(recorded([&] { EXPECT_EQ(call().status().code(), status); }), body);
    }

    std::uint32_t handle =
        kvo::host::registerMemory(std::make_shared<std::vector<unsigned char>>(8 * 2));
    std::unique_ptr<ImageSinkTvhwImpl> sink = std::make_unique<ImageSinkTvhwImpl>();
};

TEST_F(ImageSinkTest, TheAnswerOfTheVideoOutputIsTheResult) {
    // It makes no difference that it is another sink that keeps the output open.
    ImageSinkTvhwImpl const other;
    auto const close = [&] { return sink->close(); };
    expect("close", close, 0, {"TVHW_VO_Close(0)"});

    auto const show = [&] { return sink->displayPicture({99, 1, 2, 98, handle, 16, 8}); };
    Lines lines{
        "3 ImageSink displayPicture: displayPicture: x=0 y=0 width=1 height=2 len_buf=16 stride=8",
        "TVHW_VO_DisplayPicture(0, " + std::to_string(handle) + ", 16, 8, 0, 0, 1, 2, 5)",
        "0 ImageSink displayPicture: TVHW_VO_DisplayPicture fail"};
    expect("displayPicture", show, -1, lines);
    expect("configure", [&] { return sink->configure(config(-4, 3)); }, -1,
           {"TVHW_VO_Config(0, 2, -4, 3, 5)", "0 ImageSink configure: TVHW_VO_Config fail"});
    expect("configure", [&] { return sink->configure(config(2, 3)); }, 0,
           {"TVHW_VO_Config(0, 2, 2, 3, 5)"});
    lines.pop_back();
    expect("displayPicture", show, 0, lines);
    kvo::host::unregisterMemory(handle);
    EXPECT_EQ(videoOutput().picture->memory->size(), 16U) << "forgotten while it is shown";
    expect("close", close, 0, {"TVHW_VO_Close(0)"});
    expect("close", close, -1, {"TVHW_VO_Close(0)", "0 ImageSink close: TVHW_VO_Close fail"});
    EXPECT_EQ(recorded([&] { sink.reset(); }), Lines{}) << "closed already";
}

TEST_F(ImageSinkTest, RefusesConfigurationsThatItDoesNotSupport) {
    for (Configuration const& refused : {Configuration{}, config(0, 3), config(4, 0),
                                         config(4, 3, 13), config(4, 3, 15), config(4, 3, 0)}) {
        expect("configure", [&] { return sink->configure(refused); }, -2,
               {"0 ImageSink configure: unsupported configuration"});
    }
    std::int64_t const lowBits = (std::int64_t{1} << 32) + 14;
    EXPECT_EQ(sink->configure(config(4, 3, lowBits)).status().code(), 0);
}

}  // namespace
