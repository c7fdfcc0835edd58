#pragma once

#include <string>

#include <nbx/image/image.h>
#include <nbx/math/color.h>
#include <nbx/object/so.h>

/// How far two pictures are apart, as the eye sees it.
struct ImageDifference {
    bool isSameSize = false;
    /// Share of the pixels that differ by more than the allowed difference of colour.
    double share = 1.0;
    /// Largest difference of colour, in units of CIE 1976 delta E.
    double largest = 0.0;
    /// White where pixels are alike, the redder the farther they are apart; null when sizes differ.
    NBX::SO<NBX::Image> picture;
};

/// Difference of two sRGB colours, components from 0 to 1: their distance in CIE L*a*b* with white point D65
/// (CIE 15:2004, section 8.2.1).
double colorDifference(const NBX::Color & a, const NBX::Color & b);

/// Compares pixel by pixel; `allowed` is in units of delta E.
ImageDifference compareImages(const NBX::Image & actual, const NBX::Image & expected, double allowed = 2.0);

/// How far two pictures of one size, in front of the same background, show the same model.
struct ModelLikeness {
    /// Mean structural similarity of the luma over the pixels where either shows the model; 1 without any.
    double similarity = 0.0;
    /// Share of all pixels where one picture shows the model and the other the background.
    double silhouettes = 1.0;
    std::size_t shown = 0; ///< pixels where either shows the model
    /// Dark where pixels are unlike; where the silhouettes differ, red. Null when sizes differ.
    NBX::SO<NBX::Image> picture;
};

/// The index of Wang, Bovik, Sheikh and Simoncelli, Image Quality Assessment: From Error Visibility to
/// Structural Similarity, 2004, with its window, a Gaussian of 1.5 pixels on 11 by 11, and its K1 and K2.
/// Pixels of exactly the colour `background`, alpha aside, show no model.
ModelLikeness compareModels(const NBX::Image & actual, const NBX::Image & expected,
                            const NBX::Color & background);

/// Null when the file is no PNG file.
NBX::SO<NBX::Image> readPng(const std::string & path);
void writePng(const NBX::Image & image, const std::string & path);

/// Compares a picture with `tests/golden/NAME.png`: at most one pixel in a thousand may differ by more than 2
/// units. A failed comparison keeps NAME.actual.png, NAME.expected.png and NAME.difference.png in the folder
/// golden_failures beside the test program. With ZMT_UPDATE_GOLDEN in the environment the golden picture is
/// replaced instead. The result is empty, or tells what differs.
std::string compareWithGolden(const std::string & actualPath, const std::string & name);
