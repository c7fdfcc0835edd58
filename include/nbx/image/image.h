#pragma once

#include <cstddef>
#include <vector>

#include <nbx/object/classpattern.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>

namespace NBX {

class Color;

/// The layers of a pixel, in their order in memory.
enum LayerSequence : int {
    LS_Luminance = 1,
    LS_LuminanceAlpha = 2,
    LS_RGB = 3,
    LS_RGBA = 4,
    LS_Alpha = 8,     ///< one layer; the colour is white
    LS_Intensity = 9, ///< one layer that is luminance and alpha at once
    LS_BGR = 10,
    LS_BGRA = 11,
};

/// How the layers of an image lie in memory.
enum MemoryLayout : int {
    ML_Interleaved = 1, ///< all layers of a pixel, then the next pixel
};

/// Abstract raster of pixels. Line 0 is the bottom line of the picture, as OpenGL has it; readers and writers
/// of formats that begin at the top turn the lines round. The pixels of one line are contiguous; from line to
/// line go through `lineComponents`. Several threads may read one image; who writes is alone.
class Image : public SharedObj {
    NBX_CLASS(Image, SharedObj)
public:
    /// Type of one component. The integer types stand for 0 to 1, the others for their value.
    enum DataType : int {
        UInt8 = 1,
        UInt16 = 2, ///< of the machine's byte order
        Half = 8,   ///< IEEE 754 binary16
        Float = 16,
    };

    virtual int width() const = 0;
    virtual int height() const = 0;
    int sizeX() const { return width(); }
    int sizeY() const { return height(); }

    LayerSequence layerSequence() const { return layerSequence_; }
    int dataType() const { return dataType_; }
    int numberOfLayers() const { return numberOfLayers(layerSequence_); }
    int bitsPerPixel() const { return bitsPerPixel(layerSequence_, dataType_); }
    /// True when every layer of `sequence` can be read without loss, in whatever order the layers lie:
    /// luminance from colours is a loss, a colour from luminance is none.
    bool hasLayers(LayerSequence sequence) const;

    virtual MemoryLayout memoryLayout() const { return ML_Interleaved; }
    /// Each line begins at a multiple of this number of bytes behind line 0.
    virtual int alignment() const { return 1; }
    /// Bytes between the end of a line and the start of the next one.
    virtual int padding() const { return 0; }
    /// False when the pixels may only be read.
    virtual bool isWritable() const { return true; }

    /// First component of line `y`, valid while the image lives; null, and reported, outside the image.
    virtual const void * lineComponents(int y) const = 0;
    void * lineComponents(int y);
    /// The same for images of type `UInt8`, which is checked.
    const unsigned char * lineComponentsU8(int y) const;
    unsigned char * lineComponentsU8(int y);

    /// A component; null, and reported, outside the image.
    virtual const void * pixelComponents(int x, int y, int layer = 0) const;
    void * pixelComponents(int x, int y, int layer = 0);
    const unsigned char * pixelComponentsU8(int x, int y, int layer = 0) const;
    unsigned char * pixelComponentsU8(int x, int y, int layer = 0);

    /// The colour of a pixel, opaque where the image has no alpha; opaque black, and reported, outside.
    Color getColor(int x, int y) const;
    /// Sets those layers that the image has; luminance is 0.299 red + 0.587 green + 0.114 blue.
    void setColor(int x, int y, const Color & color);

    /// Fills this image with the picture of `source`, whatever its layers, type and size. Smaller pictures
    /// are area averages (exact box filter), larger ones are interpolated linearly. `source` may not share
    /// pixels with this image. False, and reported, when either image has no pixels or this one is read only.
    bool copy(const Image * source);
    /// Copies one layer of an image of the same size; false, and reported, otherwise.
    bool copyLayer(const Image * source, int sourceLayer, int layer);
    /// Turns the picture round: left to right with `alongX`, bottom to top with `alongY`.
    virtual void flip(bool alongX, bool alongY);

    /// An image whose lines are stored as they are read: this one, unless `ownCopy` asks for a new one or the
    /// pixels are compressed.
    virtual SO<Image> uncompressed(bool ownCopy);

    /// This image, and behind it images of half the size each (integer division, at least 1) down to 1 by 1.
    /// Empty when there are no pixels.
    virtual std::vector<SO<Image>> createMipmapPyramid();
    /// A copy scaled up to powers of two, cut to the largest power of two not above `maxSize` if that is
    /// above 0. Null when there are no pixels.
    SO<Image> copyToPow2(int maxSize = 0) const;

    static int numberOfLayers(LayerSequence sequence);
    static int bitsPerPixel(LayerSequence sequence, int dataType);
    /// True for the values of the two enumerations.
    static bool isValidFormat(int layerSequence, int dataType);
    /// Bytes of a line with its padding.
    static std::size_t bytesPerLine(int width, LayerSequence sequence, int dataType, int alignment);

protected:
    /// A format that does not exist is reported, and 8-bit luminance takes its place.
    Image(LayerSequence sequence, int dataType);
    void setFormat(LayerSequence sequence, int dataType);

    bool isEmpty() const { return width() <= 0 || height() <= 0; }

private:
    LayerSequence layerSequence_;
    int dataType_;
};

} // namespace NBX
