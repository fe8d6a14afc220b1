#include "Utilities/Paths.h"

namespace ombrix {

std::string_view withoutTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  return path;
}

std::optional<std::string> appendingPathComponent(const std::optional<std::string>& directory,
                                                  std::string_view name) {
  if (!directory) return std::nullopt;
  std::string path(withoutTrailingSlashes(*directory));
  if (!path.empty() && path.back() != '/') path += '/';
  return path.append(name);
}

std::string_view deletingLastPathComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return {};
  return withoutTrailingSlashes(path.substr(0, slash == 0 ? 1 : slash));
}

}  // namespace ombrix
