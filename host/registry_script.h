// SPDX-License-Identifier: MIT
// RegistryScript enters the keys and values of a text into the registry, and takes them out again.
//
//   HKCR                                            a root key, here HKEY_CLASSES_ROOT
//   {
//       NoRemove Parent                             stays when the script is undone
//       {
//           ForceRemove Name = s 'default value'    replaced with all that stands below it
//           {
//               Child = s '%MODULE%'
//               {
//                   val Value = s 'text'
//               }
//           }
//       }
//   }
//
// Words stand apart by white space. Two quotes within a text are one; %NAME% is the replacement of that name, whatever
// characters it has, and %% a per cent sign.
#pragma once

#include "platform/registry.h"

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quorel {

class RegistryScript {
public:
    using Replacements = std::map<std::string, std::string, std::less<>>;

    // Reads the whole text before anything is entered. Throws std::invalid_argument.
    RegistryScript(std::string_view text, const Replacements& replacements);

    // The first failure ends the work and is returned.
    platform::RegistryResult enter() const;

    // Removes every key of the script but those that stay, with all that stands below. A key that is not there is no failure.
    platform::RegistryResult remove() const;

private:
    enum class Removal { plain, force, never };

    struct Key {
        std::string name;
        Removal removal = Removal::plain;
        std::vector<std::pair<std::string, std::string>> values{}; // the default value has an empty name
        std::vector<Key> keys{};
    };

    class Reader;

    static platform::RegistryResult enter(const Key& key, platform::RegistryKey parent);
    static platform::RegistryResult remove(const Key& key, platform::RegistryKey parent);

    Key root; // HKEY_CLASSES_ROOT
};

} // namespace quorel
