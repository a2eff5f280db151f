#include <gtest/gtest.h>

#include <memory>

#include "Journal.h"
#include "kvo/media/hardware/ConfigurationKeys.h"
#include "tvhw/ImageSinkTvhwImpl.h"

namespace {

using namespace kvo::media::hardware;
using kvo::host::failCall;
using kvo::host::videoOutput;

Configuration config(std::int32_t width, std::int32_t height) {
    Configuration result;
    result.setInt32(key::kWidth, width);
    result.setInt32(key::kHeight, height);
    return result;
}

class ImageSinkTest : public testing::Test {
protected:
    void TearDown() override {
        sink.reset();
        EXPECT_EQ(videoOutput().opens, 0);
        kvo::host::reset();
    }

    kvo::host::Memory pixels = std::make_shared<std::vector<unsigned char>>(8 * 2, 200);
    Image image{99, 2, 2, 98, kvo::host::registerMemory(pixels), 16, 8};
    std::string const shown =
        "TVHW_VO_DisplayPicture(0, " + std::to_string(image.buffer) + ", 16, 8, 0, 0, 2, 2, 5)";
    std::unique_ptr<ImageSinkTvhwImpl> sink = std::make_unique<ImageSinkTvhwImpl>();
};

TEST_F(ImageSinkTest, ShowsPicturesUntilItIsClosed) {
    sink.reset();
    EXPECT_EQ(recorded([&] { sink = std::make_unique<ImageSinkTvhwImpl>(); }),
              Lines{"TVHW_VO_Open(0, 2)"});
    EXPECT_EQ(
        recorded([&] { EXPECT_EQ(sink->configure(config(4, 3)).status().code(), 0); }),
        (Lines{"3 ImageSink configure: +++ImageSink configure+++", "TVHW_VO_Config(0, 2, 4, 3, 5)",
               "3 ImageSink configure: ---ImageSink configure---"}));
    EXPECT_EQ(recorded([&] { EXPECT_EQ(sink->displayPicture(image).status().code(), 0); }),
              (Lines{"3 ImageSink displayPicture: +++ImageSink displayPicture+++",
                     "3 ImageSink displayPicture: displayPicture: x=0 y=0 width=2 height=2 "
                     "len_buf=16 stride=8",
                     shown, "3 ImageSink displayPicture: ---ImageSink displayPicture---"}));
    kvo::host::unregisterMemory(image.buffer);
    ASSERT_TRUE(videoOutput().picture);
    EXPECT_EQ(videoOutput().picture->memory, pixels);
    EXPECT_EQ(videoOutput().picture->stride, 8);
    EXPECT_EQ(recorded([&] { EXPECT_EQ(sink->close().status().code(), 0); }),
              (Lines{"3 ImageSink close: +++ImageSink close+++", "TVHW_VO_Close(0)",
                     "3 ImageSink close: ---ImageSink close---"}));
    EXPECT_FALSE(videoOutput().picture);
    EXPECT_EQ(recorded([&] { sink.reset(); }), Lines{});
}

TEST_F(ImageSinkTest, RefusesConfigurationsThatItDoesNotSupport) {
    Configuration explicitFormat = config(4, 3);
    explicitFormat.setInt32(key::kColorFormat, 14);
    EXPECT_EQ(sink->configure(explicitFormat).status().code(), 0);

    Configuration lowBits = config(4, 3);
    lowBits.setInt64(key::kWidth, std::int64_t{1} << 32);
    std::vector<Configuration> unsupported{{}, config(0, 3), config(4, 0), lowBits};
    for (std::int32_t const format : {13, 15, 0}) {
        unsupported.push_back(config(4, 3));
        unsupported.back().setInt32(key::kColorFormat, format);
    }
    for (Configuration const& refused : unsupported) {
        EXPECT_EQ(recorded([&] { EXPECT_EQ(sink->configure(refused).status().code(), -2); }),
                  (Lines{"3 ImageSink configure: +++ImageSink configure+++",
                         "0 ImageSink configure: unsupported configuration"}));
    }
}

TEST_F(ImageSinkTest, TheAnswerOfTheVideoOutputIsTheResult) {
    EXPECT_EQ(recorded([&] { EXPECT_EQ(sink->displayPicture(image).status().code(), -1); }),
              (Lines{"3 ImageSink displayPicture: +++ImageSink displayPicture+++",
                     "3 ImageSink displayPicture: displayPicture: x=0 y=0 width=2 height=2 "
                     "len_buf=16 stride=8",
                     shown, "0 ImageSink displayPicture: TVHW_VO_DisplayPicture fail"}))
        << "not configured";
    EXPECT_EQ(
        recorded([&] { EXPECT_EQ(sink->configure(config(-4, 3)).status().code(), -1); }),
        (Lines{"3 ImageSink configure: +++ImageSink configure+++", "TVHW_VO_Config(0, 2, -4, 3, 5)",
               "0 ImageSink configure: TVHW_VO_Config fail"}));

    sink->configure(config(2, 2));
    struct Case {
        char const* what;
        Image image;
    };
    Case const cases[]{
        {"unknown handle", {0, 2, 2, 0, image.buffer + 1, 16, 8}},
        {"more than the memory", {0, 2, 2, 0, image.buffer, 17, 8}},
        {"less than the picture", {0, 2, 2, 0, image.buffer, 15, 8}},
        {"larger than configured", {0, 3, 1, 0, image.buffer, 16, 12}},
        {"lines that overlap", {0, 2, 2, 0, image.buffer, 16, 7}},
        {"upside down", {0, 2, -2, 0, image.buffer, 16, 8}},
    };
    for (Case const& test : cases) {
        EXPECT_EQ(sink->displayPicture(test.image).status().code(), -1) << test.what;
        EXPECT_FALSE(videoOutput().picture) << test.what;
    }
    EXPECT_EQ(sink->displayPicture(image).status().code(), 0);
}

TEST_F(ImageSinkTest, EachSinkOpensTheOutputForItselfAndTriesAgain) {
    EXPECT_EQ(recorded([] {
                  failCall("TVHW_VO_Open", 6);
                  failCall("TVHW_VO_Open", 7, 2);
                  ImageSinkTvhwImpl second;
                  EXPECT_FALSE(second.checkOpen());
                  EXPECT_TRUE(second.checkOpen());
                  EXPECT_TRUE(second.checkOpen());
                  EXPECT_EQ(videoOutput().opens, 2);
              }),
              (Lines{"TVHW_VO_Open(0, 2)", "0 ImageSink checkOpen: failed to open vo: ret=6",
                     "TVHW_VO_Open(0, 2)", "0 ImageSink checkOpen: failed to open vo: ret=7",
                     "TVHW_VO_Open(0, 2)", "3 ImageSink close: +++ImageSink close+++",
                     "TVHW_VO_Close(0)", "3 ImageSink close: ---ImageSink close---"}));
    EXPECT_EQ(videoOutput().opens, 1);

    EXPECT_EQ(recorded([] {
                  failCall("TVHW_VO_Open", 6);
                  ImageSinkTvhwImpl const never;
              }),
              (Lines{"TVHW_VO_Open(0, 2)", "0 ImageSink checkOpen: failed to open vo: ret=6"}));

    failCall("TVHW_VO_Open", 6);
    ImageSinkTvhwImpl closer;
    EXPECT_EQ(closer.close().status().code(), 0) << "closes what another sink has opened";
    EXPECT_EQ(videoOutput().opens, 0);
}

TEST_F(ImageSinkTest, AFailedCloseIsRepeatedByTheDestructor) {
    Lines const failed{"3 ImageSink close: +++ImageSink close+++", "TVHW_VO_Close(0)",
                       "0 ImageSink close: TVHW_VO_Close fail"};
    failCall("TVHW_VO_Close", 6);
    EXPECT_EQ(recorded([&] { EXPECT_EQ(sink->close().status().code(), -1); }), failed);
    EXPECT_EQ(recorded([&] { sink.reset(); }), failed);
}

}  // namespace
