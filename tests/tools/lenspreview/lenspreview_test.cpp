#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// The tool run on sample lenses and the portrait, in a folder of its own.
class LensPreview : public ::testing::Test
{
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/lenspreview-XXXXXX";
        dir = mkdtemp(pattern);
    }
    void TearDown() override { std::system(("rm -rf '" + dir + "'").c_str()); }

    // Runs the tool; its exit code, and everything it printed in output.
    int run(const std::string &arguments)
    {
        output.clear();
        FILE *pipe = popen((std::string(LENSPREVIEW) + " " + arguments + " 2>&1").c_str(), "r");
        char buffer[512];
        while (pipe && fgets(buffer, sizeof buffer, pipe))
            output += buffer;
        const int status = pipe ? pclose(pipe) : -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::string dir, output;
    const std::string lenses = std::string(TEST_DATA) + "/lenses/";
    const std::string portrait = std::string(TEST_DATA) + "/testdata/astronaut.png";
};

} // namespace

TEST_F(LensPreview, WritesTheLensAppliedToAnImage)
{
    const std::string out = dir + "/out.png";
    ASSERT_EQ(run("--canvas 1280x720 " + lenses + "sunglasses " + portrait + " " + out), 0) << output;
    const cv::Mat image = cv::imread(out);
    ASSERT_FALSE(image.empty());
    EXPECT_EQ(image.size(), cv::Size(1280, 720));
    // The sunglasses darken the eyes of the portrait (canvas scale 720/512).
    const cv::Scalar eyes = cv::mean(image(cv::Rect(280 + 275, 130, 80, 25)));
    EXPECT_LT(eyes[0] + eyes[1] + eyes[2], 200.0);
}

TEST_F(LensPreview, ReportsBrokenLensesAndBadArguments)
{
    const std::vector<std::tuple<std::string, int, std::string>> cases = {
        {dir + " " + portrait + " " + dir + "/x.png", 2,
         "lens does not load: " + dir + "/lens.json: file not found"},
        {"--size nonsense a b c", 64, "bad --size"},
        {lenses + "sunglasses " + dir + "/none.png " + dir + "/x.png", 1, "cannot read image"},
    };
    for (const auto &[arguments, code, message] : cases) {
        EXPECT_EQ(run(arguments), code) << arguments;
        EXPECT_NE(output.find(message), std::string::npos) << output;
    }
}
