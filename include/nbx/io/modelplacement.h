#pragma once

#include <string>
#include <vector>

#include <nbx/math/vector3base.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>

namespace NBX {

/// A model and where it stands on the earth.
struct ModelPlacement {
    enum AltitudeMode {
        AM_ClampToGround,    ///< on the ground, whatever the altitude
        AM_RelativeToGround, ///< so many metres above it
        AM_Absolute,         ///< so many metres above the sea
    };

    std::string model;                      ///< path of the file
    std::string name;                       ///< of the placemark
    double longitude = 0.0, latitude = 0.0; ///< degrees, WGS 84
    double altitude = 0.0;                  ///< metres
    AltitudeMode altitudeMode = AM_ClampToGround;
    /// Degrees, about the model's own axes, in this order: `roll` about y, `tilt` about x, `heading` about z,
    /// clockwise as seen from above. Models have x to the east, y to the north and z up.
    double heading = 0.0, tilt = 0.0, roll = 0.0;
    Vector3Base<double> scale{1.0, 1.0, 1.0}; ///< along x, y and z of the model
};

/// What a file of placements holds.
struct ModelPlacements {
    std::vector<ModelPlacement> models;
    std::vector<std::string> leftOut; ///< a line each
    /// For files that came out of an archive: they are removed with this.
    SO<SharedObj> files;
    std::string folder; ///< where these lie, with a '/' at its end; empty without an archive
};

/// Reads placements of models from KML, and from KMZ, which is an archive of a KML and what it names. Models
/// lie in the file's folder or below; those elsewhere, on other hosts too, are left out with a line.
class PlacementFile {
public:
    /// Files of more models are refused.
    static constexpr unsigned maxModels = 1U << 20;

    /// Whether the suffix is "kml" or "kmz", in upper or lower case.
    static bool recognizes(const std::string & path);
    /// An archive is unpacked into the folder for temporary files. Throws `InputException` with one line
    /// where the file cannot be read; a file without models gives none. From any thread.
    ///
    /// A model whose file has the name of one of `models`, letter by letter, is that one, as its path is
    /// given, wherever the KML says that it lies. Throws `InputException` where two of these have one name.
    static ModelPlacements read(const std::string & path, const std::vector<std::string> & models = {});
};

} // namespace NBX
