// The records' own descriptions, used to type, check and name members.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "hmx/client/document.h"
#include "hmx/client/error.h"
#include "kelo/record.h"

namespace hmx::client {

using Description = kelo::record::Description;
using MemberDescription = kelo::record::MemberDescription;
using Members = std::span<const MemberDescription>;

// Null when there is no member of that key. Thread: any, as all here.
[[nodiscard]] const MemberDescription* findMember(Members members, std::string_view key) noexcept;

[[nodiscard]] std::vector<std::string> keysOf(Members members);

// "no member 'widht' in RectangleType; did you mean 'width'?" as an Error, invalid. `where`: what the member was sought for.
[[nodiscard]] Error unknownMember(const std::string& where, std::string_view key, std::string_view owner, Members members);

// Checks a body against its record before it is sent: unknown keys, types, ranges, enumeration values, missing members. The first
// fault is thrown, with the path of the field: Error, invalid.
void checkBody(const Json& body, const Description& record, const std::string& origin);

// The same of a change: members may be missing, and null takes one away.
void checkPatch(const Json& patch, const Description& record, const std::string& origin);

// Checks the parameters of a retrieve: keys, types and ranges. What cannot be compared is refused: objects, arrays and null.
void checkParameters(const Json& parameters, Members known, const Description& record, const std::string& origin);

// Checks that a member's path such as "resolution.width" or "layers[0].zpos" leads to a member.
void checkMemberPath(const std::string& path, const Description& record, const std::string& origin);

}  // namespace hmx::client
