#pragma once

#include "markup/xml.h"

#include <sstream>
#include <string>

namespace corvid::test {

// A compact picture of a subtree: kind letter, name, attributes and value, children in braces.
// Null strings show as `~` so they differ from empty ones.
inline std::string Describe(const XmlNode* node) {
    static const char* const kKinds[] = {"null",    "doc",     "el",      "text",    "cdata",
                                         "comment", "pi",      "include", "doctype", "entity",
                                         "attlist", "element", "notation"};
    auto text = [](const char* s) { return s ? "'" + std::string(s) + "'" : std::string("~"); };
    std::string out = node->kind >= 0 && node->kind <= 12 ? kKinds[node->kind] : "?";
    if (node->name) {
        out += " " + std::string(node->name);
    }
    for (std::uint32_t i = 0; i < node->attributeCount; ++i) {
        const XmlAttribute* a = node->attributes[i];
        out += " [" + text(a->name) + "=" + text(a->value) + "]";
    }
    if (node->value) {
        out += " " + text(node->value);
    }
    if (node->childCount > 0) {
        out += " {";
        for (std::uint32_t i = 0; i < node->childCount; ++i) {
            out += (i ? ", " : "") + Describe(node->children[i]);
        }
        out += "}";
    }
    return out;
}

// The Document's children, described.
inline std::string ParseAndDescribe(const std::string& text,
                                    std::uint32_t options = kXmlStandardReader) {
    XmlDocument document;
    document.ParseCopy(text, options);
    std::string out;
    XmlNode* root = document.Root().node();
    for (std::uint32_t i = 0; i < root->childCount; ++i) {
        out += (i ? ", " : "") + Describe(root->children[i]);
    }
    return out;
}

inline std::string Written(const XmlDocument& document, char indent = '\t',
                           bool lineBreaks = true) {
    std::ostringstream out;
    document.Write(out, indent, lineBreaks);
    return out.str();
}

} // namespace corvid::test
