// The GenICam GenApi (schema 1.0) description of one port's parameters,
// generated from the parameter-info registry: a register node and a feature
// node per visible parameter, flat categories named after the registry's
// groups, and the device port they all read through.
#pragma once

#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "register_info.h"

class Fg_ParameterInfo;
class FgZuWrapper;

// Escapes the five characters with a meaning in XML markup; every other byte
// passes unchanged.
std::string xmlStringFilter(const std::string& text);
// Keeps what a node name may hold: ASCII letters anywhere, digits and '_'
// anywhere but first ("Pulse Form Generator 0" -> "PulseFormGenerator0").
std::string xmlNameFilter(const std::string& text);

// A node of the category tree: its child categories (owned, in creation
// order) and the names of its features (in insertion order).
class Category {
public:
    explicit Category(std::string name);
    ~Category();
    Category(const Category&) = delete;
    Category& operator=(const Category&) = delete;

    const std::string& getName() const;

    // A new child named `name`, owned by this category.
    Category* addChild(const std::string& name);
    std::size_t getChildCount() const;
    Category* getChild(std::size_t index) const;        // null when out of range
    Category* getChild(const std::string& name) const;  // the first of that name, or null
    bool hasChild(const std::string& name) const;

    void addFeature(const std::string& name);
    std::size_t getFeatureCount() const;
    const std::string& getFeature(std::size_t index) const;  // empty when out of range
    bool hasFeature(const std::string& name) const;

private:
    std::string mName;
    std::vector<std::unique_ptr<Category>> mChilds;
    std::vector<std::string> mFeatures;
};

// Writes the nodes of one parameter, one overload per kind of record.
class ParameterInfoGeneratorXML {
public:
    explicit ParameterInfoGeneratorXML(std::ostringstream& out);

    // The part every register node holds: address, length, access mode, port.
    void infoGenerate(const RegisterInfo& info, int length);
    // An integer register and its Integer feature, limits as 64-bit numbers.
    void infoGenerate(const RegisterInfo& info, uint64_t value, uint64_t from, uint64_t to, uint64_t steps);
    // A float register and its Float feature.
    void infoGenerate(const RegisterInfo& info, double value, double from, double to, double steps);
    // An Enumeration feature and, after it, its integer register.
    void infoGenerate(const RegisterInfo& info, const EnumReg_S& entries);
    // A string register, which is its own feature.
    void infoGenerate(const RegisterInfo& info, const StringReg_S& text);

private:
    void description(const RegisterInfo& info);
    void registerTail(const char* sign);

    std::ostringstream& mOut;
};

struct ParameterInfoBuilderXMLPrivate;

class ParameterInfoBuilderXML {
public:
    ParameterInfoBuilderXML(Fg_ParameterInfo& fgParamInfo, FgZuWrapper& wrapper, int port);
    ~ParameterInfoBuilderXML();
    ParameterInfoBuilderXML(const ParameterInfoBuilderXML&) = delete;
    ParameterInfoBuilderXML& operator=(const ParameterInfoBuilderXML&) = delete;

    // The whole document, UTF-8 encoded as it declares.
    std::string build();

private:
    void buildParamDescr(std::ostringstream& out, const RegisterInfo& info, const RegisterInfo* parent);
    void buildGroup(std::ostringstream& out, const RegisterInfo& group, int depth);
    void writeCategory(std::ostringstream& out, const Category& category);

    std::unique_ptr<ParameterInfoBuilderXMLPrivate> d;
};
