// What a picture file holds, read by the library.
#pragma once

#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace velto::test
{

struct PixelImage
{
    int width = 0;
    int height = 0;
    int channels = 0;
    OIIO::ImageSpec spec;
    std::vector<float> values;

    const float* At(int x, int y) const { return &values[(static_cast<std::size_t>(y) * width + x) * channels]; }
};

// Colours as they stand in the file, whatever their alpha. A file that cannot be read fails the test.
inline PixelImage ReadPixels(const std::string& file)
{
    PixelImage image;
    OIIO::ImageSpec asIs;
    asIs.attribute("oiio:UnassociatedAlpha", 1);
    const auto input = OIIO::ImageInput::open(file, &asIs);
    EXPECT_TRUE(input) << file << ": " << OIIO::geterror();
    if (!input)
        return image;
    image.spec = input->spec();
    image.width = image.spec.width;
    image.height = image.spec.height;
    image.channels = image.spec.nchannels;
    image.values.resize(image.spec.image_pixels() * image.spec.nchannels);
    EXPECT_TRUE(input->read_image(0, 0, 0, image.channels, OIIO::TypeDesc::FLOAT, image.values.data()))
        << input->geterror();
    return image;
}

} // namespace velto::test
