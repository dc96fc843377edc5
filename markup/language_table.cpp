#include "markup/language_table.h"

#include "markup/host_files.h"
#include "resources/string_table.h"

#include <algorithm>
#include <climits>
#include <cstring>

namespace corvid {

namespace {

bool BuiltinLookup(std::uint32_t id, std::string& text) {
    auto strings = BuiltinStrings();
    auto it =
        std::lower_bound(strings.begin(), strings.end(), id,
                         [](const BuiltinString& s, std::uint32_t key) { return s.id < key; });
    if (it == strings.end() || it->id != id) {
        return false;
    }
    text.assign(it->text);
    return true;
}

// The value of an attribute, or null when it is missing or written without a value.
const char* ValueOf(XmlBranch element, const char* name) {
    XmlAttribute* attribute = element.Attribute(name);
    return attribute ? attribute->value : nullptr;
}

bool ValueEquals(XmlBranch element, const char* name, const char* expected) {
    const char* value = ValueOf(element, name);
    return value && std::strcmp(value, expected) == 0;
}

// Reads an optionally signed decimal number the way "%d" does: leading blanks skipped.
const char* ReadDecimal(const char* p, int& number) {
    while (*p == ' ' || (*p >= '\t' && *p <= '\r')) {
        ++p;
    }
    bool negative = false;
    if (*p == '+' || *p == '-') {
        negative = *p == '-';
        ++p;
    }
    if (*p < '0' || *p > '9') {
        return nullptr;
    }
    long long value = 0;
    for (; *p >= '0' && *p <= '9'; ++p) {
        if (value <= INT_MAX) {
            value = value * 10 + (*p - '0');
        }
    }
    value = negative ? -value : value;
    number = static_cast<int>(std::clamp<long long>(value, INT_MIN, INT_MAX));
    return p;
}

// The first `item` below any `group` child of the root, in document order, whose attribute
// `key` equals `wanted`.
XmlBranch FindItem(XmlBranch root, const char* group, const char* key, const char* wanted) {
    for (std::uint32_t g = 0; g < root.ChildCount(); ++g) {
        XmlBranch groupElement = root.Child(g);
        if (groupElement.Kind() != kXmlElement || !groupElement.MatchesName(group)) {
            continue;
        }
        for (std::uint32_t i = 0; i < groupElement.ChildCount(); ++i) {
            XmlBranch item = groupElement.Child(i);
            if (item.Kind() == kXmlElement && item.MatchesName("item") &&
                ValueEquals(item, key, wanted)) {
                return item;
            }
        }
    }
    return {};
}

} // namespace

std::optional<std::pair<int, int>> ReadNumberPair(const char* text) {
    if (!text) {
        return std::nullopt;
    }
    int first = 0;
    int second = 0;
    const char* p = ReadDecimal(text, first);
    if (!p || *p != ',' || !ReadDecimal(p + 1, second)) {
        return std::nullopt;
    }
    return std::make_pair(first, second);
}

XmlBranch LanguageTable::rootElement() const {
    if (!documentLoaded_) {
        return {};
    }
    XmlBranch document = document_.Root();
    for (std::uint32_t i = 0; i < document.ChildCount(); ++i) {
        if (document.Child(i).Kind() == kXmlElement) {
            return document.Child(i).ChildCount() > 0 ? document.Child(i) : XmlBranch();
        }
    }
    return {};
}

bool LanguageTable::LoadOnce(const std::string& language) {
    document_.Reset();
    documentLoaded_ = false;
    language_ = language;
    folder_ = CurrentHostFiles().HostFolder() + "\\language\\" + language + "\\";
    std::optional<std::string> text = CurrentHostFiles().ReadFile(folder_ + "Corvid.srml");
    if (!text || text->empty()) {
        return false;
    }
    document_.ParseCopy(*text, kXmlStandardReader);
    documentLoaded_ = true;
    if (rootElement().IsNull()) {
        document_.Reset();
        documentLoaded_ = false;
        return false;
    }
    return true;
}

bool LanguageTable::Load(const std::string& language) {
    if (LoadOnce(language)) {
        return true;
    }
    const std::size_t dash = language.find('-');
    return dash != std::string::npos && LoadOnce(language.substr(0, dash));
}

std::string LanguageTable::FindName(int id) const {
    XmlBranch root = rootElement();
    if (root.IsNull()) {
        return {};
    }
    const std::string number = std::to_string(id);
    XmlBranch item = FindItem(root, "define", "value", number.c_str());
    const char* name = ValueOf(item, "id");
    return name ? name : "";
}

std::optional<int> LanguageTable::FindNumber(const std::string& name) const {
    XmlBranch root = rootElement();
    if (root.IsNull()) {
        return std::nullopt;
    }
    XmlBranch item = FindItem(root, "define", "id", name.c_str());
    int number = 0;
    const char* value = ValueOf(item, "value");
    if (!value || !ReadDecimal(value, number)) {
        return std::nullopt;
    }
    return number;
}

bool LanguageTable::LoadText(std::uint32_t id, std::string& text) const {
    XmlBranch root = rootElement();
    if (root.IsNull() || id > static_cast<std::uint32_t>(INT_MAX)) {
        return BuiltinLookup(id, text);
    }
    const std::string name = FindName(static_cast<int>(id));
    if (name.empty()) {
        return BuiltinLookup(id, text);
    }
    const char* value = ValueOf(FindItem(root, "string", "id", name.c_str()), "value");
    if (!value) {
        return BuiltinLookup(id, text);
    }
    text = value;
    return true;
}

DialogChanges LanguageTable::ChangesForDialog(int resourceId) const {
    DialogChanges changes;
    XmlBranch root = rootElement();
    const std::string name = FindName(resourceId);
    if (root.IsNull() || name.empty()) {
        return changes;
    }
    XmlBranch dialog;
    for (std::uint32_t i = 0; i < root.ChildCount() && dialog.IsNull(); ++i) {
        XmlBranch child = root.Child(i);
        if (child.Kind() == kXmlElement && child.MatchesName("dialog") &&
            ValueEquals(child, "id", name.c_str())) {
            dialog = child;
        }
    }
    if (dialog.IsNull()) {
        return changes;
    }
    if (const char* caption = ValueOf(dialog, "caption")) {
        changes.caption = caption;
    }
    changes.size = ReadNumberPair(ValueOf(dialog, "size"));
    for (std::uint32_t i = 0; i < dialog.ChildCount(); ++i) {
        XmlBranch item = dialog.Child(i);
        if (item.Kind() != kXmlElement || !item.MatchesName("item")) {
            continue;
        }
        const char* controlName = ValueOf(item, "id");
        std::optional<int> id = controlName ? FindNumber(controlName) : std::nullopt;
        if (!id) {
            continue;
        }
        DialogChanges::Control control;
        control.id = *id;
        control.position = ReadNumberPair(ValueOf(item, "position"));
        control.size = ReadNumberPair(ValueOf(item, "size"));
        if (const char* label = ValueOf(item, "label")) {
            control.label = label;
        }
        changes.controls.push_back(std::move(control));
    }
    return changes;
}

void LanguageTable::ApplyToDialog(DialogSurface& dialog, int resourceId) const {
    const DialogChanges changes = ChangesForDialog(resourceId);
    if (changes.caption) {
        dialog.SetCaption(*changes.caption);
    }
    if (changes.size) {
        dialog.SetSize(changes.size->first, changes.size->second);
    }
    for (const DialogChanges::Control& control : changes.controls) {
        if (!dialog.HasControl(control.id)) {
            continue;
        }
        if (control.position) {
            dialog.MoveControl(control.id, control.position->first, control.position->second);
        }
        if (control.size) {
            dialog.ResizeControl(control.id, control.size->first, control.size->second);
        }
        if (control.label) {
            dialog.SetControlText(control.id, *control.label);
        }
    }
}

LanguageTable& Language() {
    static LanguageTable table;
    return table;
}

} // namespace corvid
