#include "commands.h"

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "landscape/commandoptions.h"
#include "landscape/errors.h"
#include "landscape/landscapeoptions.h"
#include "landscape/reports.h"
#include "landscape/streamedfiles.h"
#include "program/stage.h"

#include <nbx/object/stringutils.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/util/validation/cityvalidation.h>
#include <zmt/util/validation/filevalidation.h>

namespace {

using ZMT::UTIL::ValidationReport;

struct ValidateOptions {
    std::string file;
    std::uint64_t key = 0;
    bool json = false;
};

/// Nothing in the file itself says what it is.
bool isNamedLikePagingFile(const std::string & file) {
    const std::string name = fileNameOf(file);
    return name.find(".opaque.") != std::string::npos || name.find(".trans.") != std::string::npos;
}

ValidationReport validated(const ValidateOptions & options) {
    ZMT::CORE::AsyncFile::Problem problem;
    NBX::SO<ZMT::CORE::AsyncFile> file;
    {
        const Reports told; // by the problem
        file =
            ZMT::CORE::AsyncFile::create(NBX::StringUtils::Utf8String2WString(options.file), false, problem);
    }
    if (!file) throw DataError(openingProblem(options.file, problem));
    const Reports told; // by the faults
    const bool isCity = ZMT::UTIL::CityValidation::isCity(*file);
    ValidationReport report = isCity ? ZMT::UTIL::CityValidation::run(*file, options.file)
                                     : ZMT::UTIL::FileValidation::run(*file, options.key);
    if (report.format == ValidationReport::F_Unknown && !report.faults.empty() &&
        isNamedLikePagingFile(options.file))
        report.faults.front().what += "; in the place of its textures, give the scene of the city";
    if (report.isCancelled) throw DataError("cancelled");
    return report;
}

/// Of one that belongs to the file that was asked for.
std::string fileOf(const ValidationReport::Fault & fault) {
    return fault.file.empty() ? "" : oneLine(fileNameOf(fault.file)) + ", ";
}

void printText(const ValidateOptions & options, const ValidationReport & report) {
    for (const ValidationReport::Fault & fault : report.faults)
        std::printf("%soffset %" PRIu64 ": %s\n", fileOf(fault).c_str(), fault.offset,
                    oneLine(fault.what).c_str());
    if (report.faultCount > report.faults.size())
        std::printf("and %" PRIu64 " more\n", report.faultCount - report.faults.size());
    if (!report.isSound()) return;
    const std::string light =
        report.lightTiles > 0 ? ", light map of " + std::to_string(report.lightTiles) + " tiles" : "";
    const char * parts = report.format == ValidationReport::F_City ? "textures" : "tiles";
    std::printf("%s: sound; %s, %s: %" PRIu64 ", levels: %" PRIu64 ", bytes: %" PRIu64 "%s\n",
                shownName(options.file).c_str(), ValidationReport::formatName(report.format), parts,
                report.tiles, report.levels, report.fileBytes, light.c_str());
}

nlohmann::ordered_json describe(const ValidationReport::Fault & fault) {
    nlohmann::ordered_json object = {{"offset", fault.offset}, {"what", fault.what}};
    if (!fault.file.empty()) object["file"] = shownName(fault.file);
    return object;
}

void printJson(const ValidateOptions & options, const ValidationReport & report) {
    nlohmann::ordered_json object;
    object["file"] = shownName(options.file);
    object["format"] = report.format == ValidationReport::F_Unknown
                           ? nlohmann::ordered_json()
                           : nlohmann::ordered_json(ValidationReport::formatName(report.format));
    object["sound"] = report.isSound();
    object["fault_count"] = report.faultCount;
    object["faults"] = nlohmann::ordered_json::array();
    for (const ValidationReport::Fault & fault : report.faults)
        object["faults"].push_back(describe(fault));
    object["blocks"] = report.tiles + report.lightTiles;
    object["light_blocks"] = report.lightTiles;
    object["levels"] = report.levels;
    object["bytes"] = report.fileBytes;
    std::printf("%s\n", object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

void validate(const ValidateOptions & options) {
    const Stage stage(L"check");
    const ValidationReport report = validated(options);
    options.json ? printJson(options, report) : printText(options, report);
    if (report.isSound()) return;
    const std::string faults =
        report.faultCount == 1 ? "a fault" : std::to_string(report.faultCount) + " faults";
    throw DataError(shownName(options.file) + ": has " + faults + "; get it anew, or build it again");
}

} // namespace

void addValidateCommand(CLI::App & app) {
    auto * command = app.add_subcommand(
        "validate",
        "Checks all of a streaming terrain, a streaming texture, a texture pyramid, or a city with "
        "its paging files: each fault is a line with its offset in the file, and the status is 1 "
        "if there is any.");
    const auto options = std::make_shared<ValidateOptions>();
    command->add_option("FILE", options->file, "The file, or its URL; the content tells the format")
        ->required();
    addParsedOption(*command, "--key", options->key, parseKey,
                    "Key with which a texture or a pyramid was written");
    command->add_flag(
        "--json", options->json,
        "Write an object with file, format, sound, fault_count, faults, which are the first 100 "
        "and have offset, what, and of a paging file file, blocks, light_blocks, levels and bytes");
    addRedirectsOption(*command);
    command->callback([options] { validate(*options); });
}
