#include "commandoptions.h"

#include "reports.h"

#include <cstdint>

void addFilesOption(CLI::App & command, const char * name, std::vector<std::string> & files,
                    const char * description) {
    command.add_option(name, files, description)
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

void addTerrainOption(CLI::App & command, std::string & terrain) {
    command
        .add_option("--terrain", terrain,
                    "Height raster, a terrain that was built, or a streaming one: its file or its URL")
        ->required();
}

void addVoidOption(CLI::App & command, bool & fillVoids) {
    command.add_flag("--fill-voids", fillVoids,
                     "Interpolate where the raster has no heights, up to 200 cells far");
}

void addCrsOption(CLI::App & command, std::string & crs) {
    addParsedOption(command, "--crs", crs, parseCrs,
                    "Coordinate system in metres in which the heights are laid, by its number or as WKT; "
                    "without it their own, or one for their area where that is in degrees or feet")
        ->type_name("EPSG|WKT");
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

void addLandscapeOptions(CLI::App & command, LandscapeOptions & options) {
    addFilesOption(
        command, "--image", options.images,
        "Georeferenced image of any size, texture pyramid, or streaming texture or its URL, to drape; may be "
        "repeated, later ones on top");
    addParsedOption(command, "--key", options.key, parseKey,
                    "Key of streaming textures that were written with one")
        ->default_str("0");
    addParsedList(
        command, "--opacity", options.look.opacities, parseOpacity,
        "From 0, invisible, to 1. Like --bands, --stretch and --gamma it is given once for all images, "
        "or once for each of them, in their order")
        ->type_name("SHARE");
    addColorOptions(command, options.look);
    command.add_flag(
        "!--no-cache", options.look.cache,
        "Make the coarse levels of large images that have none anew, and keep none: otherwise they stay in "
        "$XDG_CACHE_HOME/zmt or ~/.cache/zmt, up to 8 GiB in all");
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
            "overview (from the south), closeup, north (straight down, north up); the map coordinates of eye "
            "and aim: EX,EY,EZ,AX,AY,AZ, with x to the east, y to the north and z the height, from the "
            "ground where it has a sign, such as +50, and exaggerated as the ground is; or "
            "at:X,Y,AZIMUTH,PITCH,DISTANCE: at the ground, in a direction clockwise from north, so many "
            "degrees below the horizon, from so many metres away")
        ->default_str("overview");
    command.add_flag("--lonlat", view.isLonLat, "Places are longitude and latitude, in degrees of WGS 84");
}

void addErrorOptions(CLI::App & command, AllowedErrors & errors) {
    command.add_option("--geometry-error", errors.geometry, "Allowed error of the geometry, in pixels")
        ->capture_default_str();
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
}

void addOutputNote(CLI::App & command) {
    command.footer("Files appear when they are complete, in the place of what was there. An output that is a "
                   "symbolic link stays one: the file that it points to is replaced. Files that are write "
                   "protected, devices and pipes are not, and neither is a file that the run reads.");
}
