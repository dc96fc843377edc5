#include "markup/xml.h"

#include <ostream>
#include <string>
#include <vector>

namespace corvid {

namespace {

const char* DeclarationKeyword(XmlNodeKind kind) {
    switch (kind) {
    case kXmlDtdEntity:
        return "<!ENTITY ";
    case kXmlDtdAttList:
        return "<!ATTLIST ";
    case kXmlDtdElement:
        return "<!ELEMENT ";
    case kXmlDtdNotation:
        return "<!NOTATION ";
    default:
        return nullptr;
    }
}

bool IsDeclaration(XmlNodeKind kind) {
    return DeclarationKeyword(kind) != nullptr;
}

class Writer {
public:
    Writer(std::ostream& out, char indentChar, bool lineBreaks)
        : out_(out), indent_(indentChar), lineBreaks_(lineBreaks) {}

    // Writes one node and everything below it. Elements nest through an explicit stack rather than
    // recursion, so that no depth of tree can exhaust the stack.
    void Write(XmlNode* top) {
        struct Open {
            XmlNode* element;
            std::uint32_t next;
        };
        std::vector<Open> open;
        if (OpenNode(top)) {
            open.push_back({top, 0});
        }
        while (!open.empty()) {
            Open& level = open.back();
            if (level.next < level.element->childCount && out_.good()) {
                XmlNode* child = level.element->children[level.next++];
                if (OpenNode(child)) {
                    open.push_back({child, 0});
                }
                continue;
            }
            XmlNode* element = level.element;
            open.pop_back();
            indent_.Pop();
            if (!out_.good()) {
                continue;
            }
            out_ << indent_.Current() << "</";
            if (element->name) {
                out_ << element->name;
            }
            out_ << '>';
            EndLine();
        }
    }

private:
    // Writes a node, or the opening part of an element whose children follow on lines of their own
    // (then returns true, with the indent pushed).
    bool OpenNode(XmlNode* node) {
        if (!out_.good()) {
            return false;
        }
        out_ << indent_.Current();
        switch (node->kind) {
        case kXmlElement:
        case kXmlProcessingInstruction:
            if (WriteTag(node)) {
                return true;
            }
            break;
        case kXmlText:
            if (node->value) {
                out_ << node->value;
            }
            break;
        case kXmlCData:
            WriteWrapped("<![CDATA[", node->value, "]]>");
            break;
        case kXmlComment:
            WriteWrapped("<!--", node->value, "-->");
            break;
        case kXmlInclude:
            WriteWrapped("<![INCLUDE[", node->value, "]]>");
            break;
        case kXmlDocType:
            WriteDocType(node);
            break;
        case kXmlDtdEntity:
        case kXmlDtdAttList:
        case kXmlDtdElement:
        case kXmlDtdNotation:
            WriteDeclaration(node);
            break;
        default:
            break;
        }
        EndLine();
        return false;
    }

    bool WriteTag(XmlNode* node) {
        const bool instruction = node->kind == kXmlProcessingInstruction;
        out_ << (instruction ? "<?" : "<") << (node->name ? node->name : "anonymous");
        for (std::uint32_t i = 0; i < node->attributeCount; ++i) {
            const XmlAttribute* attribute = node->attributes[i];
            if (!attribute->name) {
                continue;
            }
            out_ << ' ' << attribute->name;
            if (attribute->value) {
                out_ << "=\"" << attribute->value << '"';
            }
        }
        if (instruction) {
            out_ << "?>";
            return false;
        }
        if (node->childCount == 0) {
            out_ << "/>";
            return false;
        }
        if (node->childCount == 1 && node->children[0]->kind == kXmlText) {
            out_ << '>';
            if (node->children[0]->value) {
                out_ << node->children[0]->value;
            }
            out_ << "</";
            if (node->name) {
                out_ << node->name;
            }
            out_ << '>';
            return false;
        }
        out_ << '>';
        EndLine();
        indent_.Push();
        return true;
    }

    void WriteWrapped(const char* open, const char* value, const char* close) {
        if (value) {
            out_ << open << value << close;
        }
    }

    void WriteDocType(XmlNode* node) {
        out_ << "<!DOCTYPE";
        for (std::uint32_t i = 0; i < node->attributeCount; ++i) {
            const XmlAttribute* attribute = node->attributes[i];
            if (attribute->name) {
                out_ << ' ' << attribute->name;
            } else if (attribute->value) {
                out_ << " \"" << attribute->value << '"';
            }
        }
        if (node->childCount > 0) {
            const char separator = lineBreaks_ ? '\n' : ' ';
            out_ << separator << '[' << separator;
            indent_.Push();
            for (std::uint32_t i = 0; i < node->childCount && out_.good(); ++i) {
                XmlNode* child = node->children[i];
                if (IsDeclaration(child->kind)) {
                    OpenNode(child);
                }
            }
            indent_.Pop();
            out_ << "]>";
        } else if (node->value) {
            out_ << " [" << node->value << "]>";
        } else {
            out_ << '>';
        }
    }

    void WriteDeclaration(XmlNode* node) {
        if (!node->name) {
            return;
        }
        out_ << DeclarationKeyword(node->kind) << node->name;
        if (node->value) {
            out_ << ' ' << node->value;
        }
        out_ << '>';
    }

    void EndLine() {
        if (lineBreaks_) {
            out_ << '\n';
        }
    }

    std::ostream& out_;
    XmlIndent indent_;
    bool lineBreaks_;
};

} // namespace

void XmlBranch::Write(std::ostream& out, char indentChar, bool lineBreaks) const {
    if (!node_ || node_->kind == kXmlNull) {
        return;
    }
    Writer writer(out, indentChar, lineBreaks);
    if (node_->parent == node_ && node_->kind == kXmlDocument) {
        for (std::uint32_t i = 0; i < node_->childCount && out.good(); ++i) {
            writer.Write(node_->children[i]);
        }
    } else {
        writer.Write(node_);
    }
    out.flush();
}

void XmlDocument::Write(std::ostream& out, char indentChar, bool lineBreaks) const {
    Root().Write(out, indentChar, lineBreaks);
}

} // namespace corvid
