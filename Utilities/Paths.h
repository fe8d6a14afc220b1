#pragma once

#include <optional>
#include <string>
#include <string_view>

// Paths as texts; nothing here looks at a disk.

namespace ombrix {

// `directory` with `name` as its last component, one "/" between them; nothing when there is no
// directory.
[[nodiscard]] std::optional<std::string> appendingPathComponent(
    const std::optional<std::string>& directory, std::string_view name);

// `path` without the "/" at its end, if it is not "/" itself: with one, the system finds
// directories only, and says of any other file that it does not exist.
[[nodiscard]] std::string_view withoutTrailingSlashes(std::string_view path);

// `path` without its last component and the "/" before it: "/usr" of "/usr/vim", "/" of "/vim",
// empty of "vim".
[[nodiscard]] std::string_view deletingLastPathComponent(std::string_view path);

}  // namespace ombrix
