// One home for the options that several commands share: their words, their help and how their texts become
// values. What cannot be parsed is a usage error.

#include "commandoptions.h"

#include "reports.h"

#include <cstdint>
#include <memory>

#include <zmt/core/misc/httpsettings.h>

void addFilesOption(CLI::App & command, const char * name, std::vector<std::string> & files,
                    const char * description) {
    command.add_option(name, files, description)
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

CLI::Option * addTerrainOption(CLI::App & command, std::string & terrain) {
    return command
        .add_option("--terrain", terrain,
                    "Height raster, a terrain that was built, or a streaming one: its file or its URL")
        ->required();
}

void addCityFilesOption(CLI::App & command, std::vector<std::string> & files) {
    addFilesOption(command, "--city", files, "City that 'zmt build city' wrote, or its URL; may be repeated");
}

void addCityOptions(CLI::App & command, CityOptions & options) {
    addCityFilesOption(command, options.files);
    command
        .add_option("--city-quality", options.look.quality,
                    "Factor of the distances at which the textures of cities become finer")
        ->capture_default_str();
    command.add_option_function<double>(
        "--city-distance", [&options](double metres) { options.look.distance = metres; },
        "Metres beyond which nothing of cities that has a texture is drawn");
}

void addOverlayOptions(CLI::App & command, std::vector<OverlayOptions> & overlays) {
    const auto list = std::make_shared<OverlayList>(overlays);
    command
        .add_option_function<std::string>(
            "--overlay", [list](const std::string & text) { list->addFile(text); },
            "Vector file or its URL, or a layer of it, to draw on the ground and above all images; may be "
            "repeated, later ones on top")
        ->trigger_on_parse()
        ->type_name("FILE[,LAYER]");
    command
        .add_option_function<std::string>(
            "--style", [list](const std::string & text) { list->addStyle(text); },
            "How the --overlay before it is drawn: a style file, or a specification such as "
            "'color=#d04030,width=2,fill=#d0403040,label=name'; without it by the styles in the file, or as "
            "is "
            "usual")
        ->trigger_on_parse()
        ->type_name("FILE|SPEC");
}

void addVoidOption(CLI::App & command, bool & fillVoids) {
    command.add_flag("--fill-voids", fillVoids,
                     "Interpolate where the raster has no heights, up to 200 cells far");
}

void addCrsOption(CLI::App & command, std::string & crs) {
    addParsedOption(command, "--crs", crs, parseCrs,
                    "Coordinate system in metres in which the heights are laid, by its number, as WKT or in "
                    "words of PROJ; "
                    "without it their own, or one for their area where that is in degrees or feet")
        ->type_name("EPSG|WKT|PROJ");
}

void addTreeOptions(CLI::App & command, TreeOptions & options) {
    command.add_option("--max-vertices", options.maxVertices,
                       "Budget of a node of the tree, " + std::to_string(TreeOptions::s_leastVertices) +
                           " to " + std::to_string(TreeOptions::s_mostVertices) + ", without it " +
                           std::to_string(TreeOptions::s_maxVertices));
    command.add_option("--threads", options.threads,
                       "Threads that build the tree, without it one for each core");
    command.add_flag_function(
        "--verbose", [](std::int64_t) { Reports::setVerbose(true); },
        "Tell also what a tree is built from, and how the libraries work");
}

void addColorOptions(CLI::App & command, ImageOptions & options) {
    addParsedList(
        command, "--bands", options.bands, parseBands,
        "Numbers of the bands that are red, green and blue, or of one that is gray, from 1 on; without "
        "it what the file calls so, or its first three")
        ->type_name("R,G,B");
    addParsedList(command, "--stretch", options.stretches, parseStretch,
                  "The numbers that are black and white, as the file stores them; auto: of each band, 2 % of "
                  "its samples become black and 2 % white; none: from 0 to the greatest number of the type, "
                  "of floating point numbers to 1. Without it numbers of 8 bits are colours, and others are "
                  "stretched as by auto, unless the file says what is white")
        ->type_name("MIN,MAX|auto|none");
    addParsedList(command, "--gamma", options.gammas, parseGamma,
                  "Above 1 brightens what is between black and white, below 1 darkens it")
        ->type_name("GAMMA");
}

void addCacheOption(CLI::App & command, bool & cache) {
    command.add_flag(
        "!--no-cache", cache,
        "Make the coarse levels of large images that have none anew, and keep none: otherwise they stay in "
        "$XDG_CACHE_HOME/zmt or ~/.cache/zmt, up to 8 GiB in all");
}

void addRedirectsOption(CLI::App & command) {
    command.add_flag_function(
        "--follow-redirects", [](std::int64_t) { ZMT::CORE::HttpSettings::setFollowsRedirects(true); },
        "Follow a web server to any other one, and not to the same host and from http to https alone");
}

void addLandscapeOptions(CLI::App & command, LandscapeOptions & options) {
    addFilesOption(
        command, "--image", options.images,
        "Georeferenced image of any size, texture pyramid, or streaming texture or its URL, to drape; may be "
        "repeated, later ones on top");
    addParsedOption(command, "--key", options.key, parseKey,
                    "Key of streaming textures that were written with one")
        ->default_str("0");
    addRedirectsOption(command);
    addParsedList(
        command, "--opacity", options.look.opacities, parseOpacity,
        "From 0, invisible, to 1. Like --bands, --stretch and --gamma it is given once for all images, "
        "or once for each of them, in their order")
        ->type_name("SHARE");
    addColorOptions(command, options.look);
    addCacheOption(command, options.look.cache);
    addOverlayOptions(command, options.overlays);
    command.add_option("--contours", options.contours,
                       "Contour lines on the ground, below all overlays: metres from each to the next; each "
                       "fifth one is thick, with its height");
    addFilesOption(command, "--track", options.tracks.files,
                   "GPX file of something that moved: its way up to --time, and a mark where it was then; "
                   "may be repeated");
    command.add_option(
        "--time", options.tracks.time,
        "Of tracks: a time such as 2024-05-01T12:30:00Z, or +SECONDS after the start of the first; "
        "without it the end of all");
    addParsedOption(command, "--flood", options.flood, parseFlood,
                    "Water over all ground at this height or below, in a colour such as '#2060c0a0', whose "
                    "last two digits are its opacity")
        ->type_name("HEIGHT[,COLOR]");
    addFilesOption(command, "--breaklines", options.breakLines,
                   "Vector file whose lines and outlines become edges of the terrain; may be repeated");
    addFilesOption(
        command, "--drape", options.draped,
        "Vector file whose areas become triangles that take the colours of the ground; may be repeated");
    command.add_option("--drape-lift", options.drapeLift, "Height of the areas above the ground")
        ->capture_default_str();
    addVoidOption(command, options.fillVoids);
    addCrsOption(command, options.crs);
    addParsedOption(command, "--method", options.method, parseMethod,
                    "tree: the best levels of detail, built once; chunked: starts within seconds; auto: "
                    "chunked, but the tree of a built terrain, with --max-vertices, --breaklines or "
                    "--lighting vertex, and for what is too large for chunks")
        ->default_str("auto");
    addTreeOptions(command, options.tree);
    command.add_option("--exaggeration", options.exaggeration, "Factor of the heights")
        ->capture_default_str();
    addParsedOption(command, "--light", options.light, parseSunlight,
                    "AZIMUTH,ELEVATION[,AMBIENT]: degrees clockwise from north, degrees above the horizon, "
                    "and the share of light from everywhere");
    addParsedOption(command, "--lighting", options.lighting, parseLighting,
                    "relief: a quick shading; vertex: the normals of the vertices, at full detail; static: "
                    "a baked light map; dynamic: light for each pixel")
        ->default_str("relief");
    command.add_flag_function(
        "--shade-images,!--no-shade-images",
        [&options](std::int64_t count) { options.shadeImages = count > 0; },
        "Whether the light falls on images as well, which have shadows of their own; by default with "
        "--lighting dynamic and vertex");
}

void addViewOptions(CLI::App & command, View & view, PictureSize & size) {
    addParsedOption(command, "--size", size, parsePictureSize, "Size of the picture in pixels, WIDTHxHEIGHT")
        ->default_str(std::to_string(size.width) + "x" + std::to_string(size.height));
    command
        .add_option_function<std::string>(
            "--view",
            [&view](const std::string & text) {
                const bool isLonLat = view.isLonLat;
                view = parseView(text);
                view.isLonLat = isLonLat;
            },
            "overview (all of it, from the south), closeup, north (straight down, north up); the map "
            "coordinates of eye "
            "and aim: EX,EY,EZ,AX,AY,AZ, with x to the east, y to the north and z the height, from the "
            "ground where it has a sign, such as +50, and exaggerated as the ground is; or "
            "at:X,Y,AZIMUTH,PITCH,DISTANCE: at the ground, in a direction clockwise from north, so many "
            "degrees below the horizon, from so many metres away")
        ->default_str("overview");
    command.add_flag("--lonlat", view.isLonLat, "Places are longitude and latitude, in degrees of WGS 84");
}

void addErrorOptions(CLI::App & command, AllowedErrors & errors) {
    command
        .add_option("--geometry-error", errors.geometry,
                    "Allowed error of the geometry, in pixels. It counts upright: from straight above, where "
                    "that does not show, only 0 gives more detail")
        ->capture_default_str()
        ->each([&errors](const std::string &) { errors.isGeometryAsked = true; });
    command.add_option("--texture-error", errors.texture, "Allowed size of a texel, in pixels")
        ->capture_default_str();
}

void addMemoryOptions(CLI::App & command, MemoryBudgets & budgets) {
    command
        .add_option("--memory", budgets.main,
                    "MiB of heights and images that are kept to be drawn again, at most 4095")
        ->capture_default_str();
    command
        .add_option("--graphics-memory", budgets.graphics,
                    "MiB of buffers and textures that are kept on the card, at most 4095")
        ->capture_default_str();
    command
        .add_option("--city-memory", budgets.city,
                    "MiB of textures of cities, decoded and on the card, at most 4095")
        ->capture_default_str();
    command
        .add_option("--texture-memory", budgets.overlay,
                    "MiB of textures of overlays that are kept on the card, at most 4095; a view that needs "
                    "more is blurred in places")
        ->capture_default_str();
}

namespace {

constexpr const char * s_outputNote =
    "Files appear when they are complete, in the place of what was there. An output that is a symbolic link "
    "stays one: the file that it points to is replaced. Files that are write protected, devices and pipes "
    "are "
    "not, and neither is a file that the run reads.";

constexpr const char * s_combinationNote =
    "All options go with every terrain, but for these, which are refused in one line elsewhere:\n"
    "  --crs, --fill-voids, --threads           height rasters, which are not built yet\n"
    "  --max-vertices, --breaklines             height rasters, as a tree\n"
    "  --method                                 height rasters; a built terrain is a tree\n"
    "  --drape                                  all but streaming terrains\n"
    "  --lighting vertex                        trees\n"
    "  --lighting static, dynamic               streaming terrains only as they were built\n"
    "  --light                                  not with baked light of a streaming terrain, but with a "
    "relief\n"
    "Streaming textures take --key; --opacity, --bands, --stretch and --gamma are of other images.\n";

} // namespace

void addOutputNote(CLI::App & command) {
    command.footer(s_outputNote);
}

void addPictureNotes(CLI::App & command) {
    command.footer(std::string(s_combinationNote) + "\n" + s_outputNote);
}
