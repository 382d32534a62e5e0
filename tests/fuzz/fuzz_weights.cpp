// Photo bytes and settings into the scissors' weight calculator.
// Input: width - 1 and height - 1 (two bytes each, up to 512), a settings
// byte (bits: 3x3 mean, Sobel, sigmoid, invert, 32-bit pixels, padded rows),
// a point and a radius in reduced pixels, then the photo's bytes.

#include "PXFuzzInput.h"
#include "PXIntelligentScissorsWeightCalculator.h"

#include <cstdlib>

using Calculator = PXIntelligentScissorsWeightCalculator;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size)
{
    PXFuzzInput input(data, size);
    const unsigned width = 1 + input.word() % 512;
    const unsigned height = 1 + input.word() % 512;
    const unsigned bits = input.byte();
    const Calculator::Settings settings(bits & 1 ? Calculator::Mean3x3 : Calculator::Mean2x2,
        bits & 2 ? Calculator::Sobel3x3 : Calculator::NoEdgeDetection,
        bits & 4 ? Calculator::Sigmoid : Calculator::NoPostProcessing, bits & 8);
    const auto format = bits & 16 ? Calculator::Xrgb32 : Calculator::Gray8;
    const unsigned stride = width * (format == Calculator::Xrgb32 ? 4 : 1) + (bits & 32 ? 4 : 0);
    const unsigned x = input.word();
    const unsigned y = input.word();
    const unsigned radius = input.byte();
    const QByteArray pixels = input.repeatedRest(qsizetype(stride) * height);

    Calculator calculator(width, height, settings);
    calculator.setImage(reinterpret_cast<const unsigned char*>(pixels.constData()), format, stride);
    calculator.calculateRegion(x % (width + 8), y % (height + 8), radius);
    unsigned char cost = 0;
    const unsigned reducedWidth = width / calculator.scale() + 1;
    for (unsigned i = 0; i < 8; ++i)
        calculator.get((x + i * 7) % reducedWidth, y % (height / calculator.scale() + 1), &cost);
    calculator.stop();
    return 0;
}
