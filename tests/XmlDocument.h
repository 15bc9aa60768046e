// A GenApi description parsed by libxml2, with XPath lookups in which the
// GenApi namespace has the prefix "g". Parser errors are collected instead of
// printed.
#pragma once

#include <libxml/parser.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <string>
#include <vector>

class XmlDocument {
public:
    static constexpr const char* kGenApi = "http://www.genicam.org/GenApi/Version_1_0";

    explicit XmlDocument(const std::string& text) {
        xmlSetStructuredErrorFunc(&errors_, [](void* sink, xmlErrorPtr e) {
            static_cast<std::string*>(sink)->append(e && e->message ? e->message : "?");
        });
        doc_ = xmlReadMemory(text.data(), static_cast<int>(text.size()), "description.xml", nullptr,
                             XML_PARSE_NONET);
        xmlSetStructuredErrorFunc(nullptr, nullptr);
        if (doc_) {
            context_ = xmlXPathNewContext(doc_);
            xmlXPathRegisterNs(context_, BAD_CAST "g", BAD_CAST kGenApi);
        }
    }
    ~XmlDocument() {
        xmlXPathFreeContext(context_);
        xmlFreeDoc(doc_);
    }
    XmlDocument(const XmlDocument&) = delete;
    XmlDocument& operator=(const XmlDocument&) = delete;

    bool ok() const { return doc_ != nullptr && errors_.empty(); }
    const std::string& errors() const { return errors_; }
    xmlDocPtr doc() const { return doc_; }

    std::vector<xmlNodePtr> nodes(const std::string& xpath) const {
        std::vector<xmlNodePtr> found;
        if (!context_) return found;
        xmlXPathObjectPtr result = xmlXPathEvalExpression(BAD_CAST xpath.c_str(), context_);
        if (result && result->nodesetval)
            for (int i = 0; i < result->nodesetval->nodeNr; ++i) found.push_back(result->nodesetval->nodeTab[i]);
        xmlXPathFreeObject(result);
        return found;
    }
    // The text of every node the path selects, in document order.
    std::vector<std::string> texts(const std::string& xpath) const {
        std::vector<std::string> found;
        for (xmlNodePtr node : nodes(xpath)) found.push_back(content(node));
        return found;
    }
    // The text of the one node the path selects; "<missing>" or "<N nodes>" otherwise.
    std::string text(const std::string& xpath) const {
        const std::vector<std::string> found = texts(xpath);
        if (found.size() == 1) return found[0];
        return found.empty() ? "<missing>" : std::string("<").append(std::to_string(found.size())).append(" nodes>");
    }

    // The path of the top-level node named `name`, or of its child `element`.
    static std::string path(const std::string& name, const std::string& element = "") {
        return "/g:RegisterDescription/*[@Name='" + name + "']" + (element.empty() ? "" : "/g:" + element);
    }
    std::vector<xmlNodePtr> named(const std::string& name) const { return nodes(path(name)); }
    std::string field(const std::string& name, const std::string& element) const { return text(path(name, element)); }

    static std::string content(xmlNodePtr node) {
        xmlChar* raw = xmlNodeGetContent(node);
        std::string value = raw ? reinterpret_cast<const char*>(raw) : "";
        xmlFree(raw);
        return value;
    }
    static std::string name(xmlNodePtr node) { return reinterpret_cast<const char*>(node->name); }

private:
    xmlDocPtr doc_ = nullptr;
    xmlXPathContextPtr context_ = nullptr;
    std::string errors_;
};

