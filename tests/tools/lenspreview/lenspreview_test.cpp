// The lens preview tool as a lens author runs it.
#include <cstdlib>
#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <unistd.h>

TEST(LensPreview, WritesTheLensAppliedToAnImage)
{
    char pattern[] = "/tmp/lenspreview-XXXXXX";
    const std::string out = std::string(mkdtemp(pattern)) + "/out.png";
    const std::string data = TEST_DATA;
    ASSERT_EQ(std::system((std::string(LENSPREVIEW) + " --canvas 1280x720 " + data + "/lenses/sunglasses " +
                           data + "/testdata/astronaut.png " + out)
                              .c_str()),
              0);
    const cv::Mat image = cv::imread(out);
    std::system(("rm -rf " + std::string(pattern)).c_str());
    ASSERT_FALSE(image.empty());
    EXPECT_EQ(image.size(), cv::Size(1280, 720));
    // The sunglasses darken the eyes of the portrait (canvas scale 720/512).
    const cv::Scalar eyes = cv::mean(image(cv::Rect(280 + 275, 130, 80, 25)));
    EXPECT_LT(eyes[0] + eyes[1] + eyes[2], 200.0);
}
