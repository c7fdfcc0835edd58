// Any bytes as the head of a server's reply, and as a netrc file: no crash, no hang, and nothing accepted
// that is not the range that was asked for.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "core/http/httprangereply.h"
#include "core/http/netrc.h"

using namespace ZMT::CORE::IMPL;

namespace {

/// Lines "name: value"; the first one is the status and its reason.
HttpReplyHead headOf(std::string_view text) {
    HttpReplyHead head;
    for (bool isFirst = true; !text.empty(); isFirst = false) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(line.size() < text.size() ? line.size() + 1 : line.size());
        const std::size_t colon = line.find(':');
        if (isFirst) {
            head.status = line.empty() ? 0 : 200 + static_cast<unsigned char>(line[0]);
            head.reason = line;
        } else if (colon != std::string_view::npos) {
            head.fields.emplace_back(line.substr(0, colon), line.substr(colon + 1));
        }
    }
    return head;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t * data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    const HttpReplyHead head = headOf(text);
    const HttpFileVersion known = {10, "\"a\"", "Sun, 06 Nov 1994 08:49:37 GMT"};
    const std::wstring problem = judgeRangeReply(L"host", head, 5, known);
    if (problem.size() > 4000) __builtin_trap();
    const HttpFileVersion version = versionOf(head);
    if (problem.empty() && (head.status != 206 || version.size != known.size)) __builtin_trap();
    const double pause = retryAfter(head, 784111777.0);
    if (!(pause >= 0.0 && pause <= 3600.0)) __builtin_trap();
    judgeRangeReply(L"host", head, 0, {});
    findNetrcLogin(text, "host");
    return 0;
}
