// Directions: the Unicode Bidirectional Algorithm (Unicode Standard Annex #9), whose levels FriBidi finds;
// runs are put in order here, by its rule L2. Scripts: a character of no script of its own, such as a blank
// or a digit, belongs to that before it, else to that behind it.

#include "textrun.h"

#include <algorithm>

#include <fribidi.h>
#include <hb.h>

namespace NBX {

namespace {

bool isOfNoScript(hb_script_t script) {
    return script == HB_SCRIPT_COMMON || script == HB_SCRIPT_INHERITED || script == HB_SCRIPT_UNKNOWN;
}

std::vector<hb_script_t> scriptsOf(std::u32string_view line) {
    hb_unicode_funcs_t * unicode = hb_unicode_funcs_get_default();
    std::vector<hb_script_t> scripts;
    scripts.reserve(line.size());
    for (const char32_t c : line) {
        const hb_script_t script = hb_unicode_script(unicode, c);
        scripts.push_back(isOfNoScript(script) && !scripts.empty() ? scripts.back() : script);
    }
    const auto first = std::find_if_not(scripts.begin(), scripts.end(), isOfNoScript);
    if (first != scripts.end()) std::fill(scripts.begin(), first, *first);
    return scripts;
}

/// All 0 where there is no memory for them.
std::vector<FriBidiLevel> levelsOf(std::u32string_view line) {
    const auto count = FriBidiStrIndex(line.size());
    const std::vector<FriBidiChar> characters(line.begin(), line.end());
    std::vector<FriBidiCharType> types(line.size());
    std::vector<FriBidiBracketType> brackets(line.size());
    std::vector<FriBidiLevel> levels(line.size());
    fribidi_get_bidi_types(characters.data(), count, types.data());
    fribidi_get_bracket_types(characters.data(), count, types.data(), brackets.data());
    FriBidiParType direction = FRIBIDI_PAR_ON;
    if (fribidi_get_par_embedding_levels_ex(types.data(), brackets.data(), count, &direction,
                                            levels.data()) == 0)
        std::fill(levels.begin(), levels.end(), FriBidiLevel(0));
    return levels;
}

struct LeveledRun {
    TextRun run;
    FriBidiLevel level;
};

/// Rule L2: from the highest level down to the lowest odd one, what is of that level or above turns round.
void order(std::vector<LeveledRun> & runs) {
    FriBidiLevel highest = 0;
    for (const LeveledRun & r : runs)
        highest = std::max(highest, r.level);
    for (int level = highest; level > 0; --level) {
        const auto isBelow = [level](const LeveledRun & r) { return r.level < level; };
        for (auto at = runs.begin(); at != runs.end();) {
            const auto begin = std::find_if_not(at, runs.end(), isBelow);
            at = std::find_if(begin, runs.end(), isBelow);
            std::reverse(begin, at);
        }
    }
}

} // namespace

std::vector<TextRun> runsFromLeftToRight(std::u32string_view line) {
    if (line.empty()) return {};
    const std::vector<hb_script_t> scripts = scriptsOf(line);
    const std::vector<FriBidiLevel> levels = levelsOf(line);
    std::vector<LeveledRun> runs;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const bool goesOn = i > 0 && scripts[i] == scripts[i - 1] && levels[i] == levels[i - 1];
        if (goesOn)
            runs.back().run.end = i + 1;
        else
            runs.push_back({{i, i + 1, levels[i] % 2 == 1, unsigned(scripts[i])}, levels[i]});
    }
    order(runs);
    std::vector<TextRun> result;
    result.reserve(runs.size());
    for (const LeveledRun & r : runs)
        result.push_back(r.run);
    return result;
}

} // namespace NBX
