#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Utilities/Configuration/ConfigurationProtocol.h"
#include "Utilities/Containers/KeyValuePair.h"

// The one store of settings: an ordered list of keys and values under a contract. Keys are
// case-insensitive. Storing a value under an alias source also stores it under the target; nothing
// is resolved when it is read. A value under a key that ends in "directory" always ends in "/".
// Filled at start-up, only read afterwards; not for use from several threads.

namespace ombrix {

class ConfigurationManager {
 public:
  using Value = std::optional<std::string>;

  // Takes the contract's lists; the contract itself is not kept. Without a contract the store has
  // neither required keys nor aliases nor defaults, and says so in the log.
  explicit ConfigurationManager(const ConfigurationProtocol* contract);

  // Returns false, changing nothing, when the key has an entry already. A directory's value that
  // lacks its final "/" gets one, and the directory is made when it is missing. An absent value is
  // an entry that reads as absent.
  bool addConfiguration(const std::string& key, const Value& value);

  // The stored value; nothing when there is none.
  [[nodiscard]] Value getConfiguration(const std::string& key) const;

  // Always nothing: the collection of several values of one key was never given a result.
  [[nodiscard]] std::optional<std::vector<std::string>> getConfigurations(
      const std::string& key) const;

  // Removes the entry of the key and leaves an alias copy alone. Always true.
  bool removeConfiguration(const std::string& key);

  // Adds each default of the contract whose key has no value.
  void addDefaultsIfMissing();

  // The required keys without a value, each of them logged: the same list at every call, filled
  // anew. Null when there is no contract. Owned by the store.
  const std::vector<std::string>* verifyAgainstContract();

  // True for an absent and for an empty value.
  [[nodiscard]] static bool validateIfNilOrEmpty(const Value& value);

  // Reads the agent configuration file and stores what it sets, over earlier values. Returns false
  // only for an empty path; a file that cannot be read or parsed is logged and sets nothing.
  [[nodiscard]] bool loadConfigurationFile(const std::string& path);

 private:
  void storeFromFile(const struct ConfigurationQuery& query, const Value& value);

  std::vector<KeyValuePair> configurations;
  std::vector<std::string> requiredOptions;
  std::vector<std::string> optionalOptions;
  std::vector<KeyValuePair> aliases;
  std::vector<KeyValuePair> defaults;
  std::optional<std::vector<std::string>> missing;
};

}  // namespace ombrix
