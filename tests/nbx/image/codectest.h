#pragma once

#include "testimages.h"

/// Reads every beginning of a sound file, from memory of just that length: none may give an image.
template <class Read> void expectNoImageFromAnyBeginning(const NBX::DataResource & sound, Read read) {
    for (unsigned size = 0; size < sound.size(); ++size)
        ASSERT_EQ(read(resourceOf(bytesOf(sound), size).get()), nullptr) << "length " << size;
}

/// Reads the file with changed bytes. What is still read must be readable to the last pixel.
template <class Read> void expectChangedBytesAreHarmless(const NBX::DataResource & sound, Read read) {
    std::mt19937 random(7);
    for (unsigned i = 0; i < 6 * sound.size(); ++i) {
        std::vector<unsigned char> bytes(bytesOf(sound), bytesOf(sound) + sound.size());
        bytes[i % sound.size()] = static_cast<unsigned char>(random());
        if (i % 3 == 0) bytes[random() % sound.size()] = static_cast<unsigned char>(random());
        const NBX::SO<NBX::Image> image = read(resourceOf(bytes.data(), bytes.size()).get());
        if (!image) continue;
        ASSERT_GT(image->width(), 0);
        ASSERT_TRUE(image->copyToPow2(4));
    }
}
