#pragma once

// A file's media class, decided by its extension, and the names the lists show for the classes.

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace corvid {

enum class MediaClass { Video = 0, Audio = 1, Image = 2, Package = 3, Application = 4, Others = 5 };

// The class of a file by the text from the last '.' of its name; a name without '.' is Others.
MediaClass MediaClassOf(std::string_view fileName);

// String-table ids of the class names: a language file may rename them.
std::uint32_t MediaClassNameId(MediaClass mediaClass);

// The six class names, looked up once per store so the reader does not go to the string table
// for every file.
class MediaClassNames {
public:
    using TextLookup = std::function<std::string_view(std::uint32_t id)>;

    // Names from the built-in string table.
    MediaClassNames();
    // Names from another source of texts by id, the language table in the plug-in.
    explicit MediaClassNames(const TextLookup& textById);

    // The class's name; a value outside the six classes is named as Others.
    const std::string& Name(MediaClass mediaClass) const;

private:
    std::array<std::string, 6> names_;
};

} // namespace corvid
