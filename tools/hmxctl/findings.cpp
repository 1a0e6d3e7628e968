#include "findings.h"

#include <algorithm>

#include "columns.h"
#include "text.h"

namespace hmxctl {
namespace {

Style styleOf(Level level) {
    switch (level) {
        case Level::ok:
            return Style::green;
        case Level::warning:
            return Style::yellow;
        case Level::problem:
            break;
    }
    return Style::red;
}

// "requested=no, active=no": the flags, which the text does not repeat.
std::string flagsOf(const Finding& finding) {
    std::string list;
    for (const auto& [key, value] : finding.values.items()) {
        if (value.is_boolean()) list += (list.empty() ? "" : ", ") + key + "=" + shortText(value);
    }
    return list;
}

}  // namespace

std::vector<std::string> findingLines(const std::vector<Finding>& findings, bool colour) {
    constexpr std::size_t levelWidth = 9;  // of the longest, and a gap
    const std::string indent(levelWidth, ' ');
    std::vector<std::string> lines;
    for (const Finding& finding : findings) {
        const std::string level{nameOf(finding.level)};
        const std::string subject = finding.subject.empty() ? "" : finding.subject + ": ";
        const std::string flags = flagsOf(finding);
        lines.push_back(styled(level, styleOf(finding.level), colour) + std::string(levelWidth - level.size(), ' ') +
                        printable(subject + finding.text) +
                        (flags.empty() ? "" : "  " + styled("(" + printable(flags) + ")", Style::dim, colour)));
        if (!finding.remedy.empty()) lines.push_back(indent + styled("→ ", Style::dim, colour) + printable(finding.remedy));
    }
    return lines;
}

}  // namespace hmxctl
