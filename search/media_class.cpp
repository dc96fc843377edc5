#include "search/media_class.h"

#include "resources/string_table.h"

#include <cstddef>

namespace corvid {
namespace {

// Each list is searched for "|<extension>|" as a substring, in this order.
struct ExtensionList {
    std::string_view extensions;
    MediaClass mediaClass;
};
constexpr ExtensionList kExtensionLists[] = {
    {"|.rm|.ram|.asf|.rmvb|.avi|.mpeg|.mpg|.mov|", MediaClass::Video},
    // ".mp4" counts as audio here, as the engine's users have always seen it.
    {"|.mp3|.mp4|.wav|.mid|.wma|", MediaClass::Audio},
    {"|.gif|.pic|.jpeg|.jpg|.bmp|.dbi|.tga|.tif|.tiff|.pcx|.psd|", MediaClass::Image},
    {"|.zip|.rar|.tar|.gz|.cab|.arj|.lzh|.ace|.gzip|.bz2|.iso|.jar|", MediaClass::Package},
    {"|.exe|.com|", MediaClass::Application},
};
constexpr std::size_t kLongestList = 64;

constexpr std::uint32_t kClassNameIds[] = {32934, 32935, 32938, 32937, 32936, 32939};

std::size_t ClassIndex(MediaClass mediaClass) {
    const auto index = static_cast<std::size_t>(mediaClass);
    return index < std::size(kClassNameIds) ? index : static_cast<std::size_t>(MediaClass::Others);
}

} // namespace

MediaClass MediaClassOf(std::string_view fileName) {
    const std::size_t dot = fileName.rfind('.');
    if (dot == std::string_view::npos) {
        return MediaClass::Others;
    }
    const std::string_view extension = fileName.substr(dot);
    // No list is longer than this, so a longer key cannot be a substring of any.
    if (extension.size() + 2 > kLongestList) {
        return MediaClass::Others;
    }
    char key[kLongestList];
    key[0] = '|';
    for (std::size_t i = 0; i < extension.size(); ++i) {
        const char c = extension[i];
        key[i + 1] = c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
    }
    key[extension.size() + 1] = '|';
    const std::string_view keyText(key, extension.size() + 2);
    for (const ExtensionList& list : kExtensionLists) {
        if (list.extensions.find(keyText) != std::string_view::npos) {
            return list.mediaClass;
        }
    }
    return MediaClass::Others;
}

std::uint32_t MediaClassNameId(MediaClass mediaClass) {
    return kClassNameIds[ClassIndex(mediaClass)];
}

MediaClassNames::MediaClassNames() : MediaClassNames(TextLookup(&BuiltinText)) {}

MediaClassNames::MediaClassNames(const TextLookup& textById) {
    for (std::size_t i = 0; i < names_.size(); ++i) {
        names_[i] = std::string(textById(kClassNameIds[i]));
    }
}

const std::string& MediaClassNames::Name(MediaClass mediaClass) const {
    return names_[ClassIndex(mediaClass)];
}

} // namespace corvid
