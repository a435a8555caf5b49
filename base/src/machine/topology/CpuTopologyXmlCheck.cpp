#include "machine/topology/CpuTopologyXmlCheck.h"

#include <hwloc.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <utility>
#include <vector>

namespace tolm {
namespace {

using Document = std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)>;
using Bitmap = std::unique_ptr<hwloc_bitmap_s, decltype(&hwloc_bitmap_free)>;

// Each set and the complete set that must hold it.
constexpr std::pair<const char*, const char*> pairedSets[] = {{"cpuset", "complete_cpuset"},
                                                              {"nodeset", "complete_nodeset"}};
constexpr const char* setAttributes[] = {"cpuset",  "complete_cpuset",  "allowed_cpuset",
                                         "nodeset", "complete_nodeset", "allowed_nodeset"};

// hwloc sets the bit of a PU's or NUMA node's os_index in a bitmap; a missing index (taken as
// 2^32 - 1) or a huge one has it allocate half a gigabyte.
constexpr unsigned long osIndexLimit = 1ul << 20;

const char* text(const xmlChar* characters) {
    return reinterpret_cast<const char*>(characters);
}

// Only the attributes written in the text: libxml2 leaves the document type's default
// attributes out of `properties`, as hwloc's readers do.
const xmlAttr* findAttribute(const xmlNode* node, const char* name) {
    for (const xmlAttr* attribute = node->properties; attribute; attribute = attribute->next)
        if (std::strcmp(text(attribute->name), name) == 0)
            return attribute;
    return nullptr;
}

// The value of an attribute that is one plain text (no entity references); null otherwise.
const char* plainValue(const xmlAttr* attribute) {
    const xmlNode* value = attribute ? attribute->children : nullptr;
    if (!value || value->next || value->type != XML_TEXT_NODE || !value->content)
        return nullptr;
    return text(value->content);
}

const char* plainValue(const xmlNode* object, const char* name) {
    return plainValue(findAttribute(object, name));
}

// "the PU object with os_index 11", as far as the object says.
std::string describe(const xmlNode* object) {
    const char* type = plainValue(object, "type");
    const char* osIndex = plainValue(object, "os_index");
    std::string description = std::string("the ") + (type ? type : "untyped") + " object";
    if (osIndex)
        description += std::string(" with os_index ") + osIndex;
    return description;
}

// hwloc's notation: groups of up to eight hexadecimal digits, each led by "0x", separated by
// commas; a group between two others may be empty (all zero), and the first may be "0xf...f"
// (all further bits set).
bool isSetText(const char* value) {
    const std::string text = value ? value : "";
    if (text.empty() || text.front() == ',' || text.back() == ',')
        return false;
    std::istringstream groups(text);
    std::string group;
    for (bool first = true; std::getline(groups, group, ','); first = false) {
        if (group.empty() || (first && group == "0xf...f"))
            continue;
        if (group.size() < 3 || group.size() > 10 || group.compare(0, 2, "0x") != 0 ||
            group.find_first_not_of("0123456789abcdefABCDEF", 2) != std::string::npos)
            return false;
    }
    return true;
}

// A set written in hwloc's notation, as hwloc reads it.
Bitmap parseSet(const char* value) {
    Bitmap set(hwloc_bitmap_alloc(), hwloc_bitmap_free);
    if (set && hwloc_bitmap_sscanf(set.get(), value) != 0)
        set.reset();
    return set;
}

bool needsOsIndex(const xmlNode* object) {
    const char* typeName = plainValue(object, "type");
    hwloc_obj_type_t type;
    return typeName && hwloc_type_sscanf(typeName, &type, nullptr, 0) == 0 &&
           (type == HWLOC_OBJ_PU || type == HWLOC_OBJ_NUMANODE);
}

// Decimal digits only (hwloc reads the index with strtoul, which takes signs and blanks too).
bool isSmallOsIndex(const char* value) {
    const std::size_t length = value ? std::strlen(value) : 0;
    return length > 0 && length < 8 && std::strspn(value, "0123456789") == length &&
           std::strtoul(value, nullptr, 10) < osIndexLimit;
}

// The defect of one pair of sets of an object whose sets are all readable; empty when none.
std::string findPairDefect(const xmlNode* object, const char* set, const char* complete) {
    const char* part = plainValue(object, set);
    const char* whole = plainValue(object, complete);
    if (!part && !whole)
        return {};
    if (!part || !whole)
        return describe(object) + " has a " + (part ? set : complete) + " but no " +
               (part ? complete : set);
    const Bitmap partSet = parseSet(part);
    const Bitmap wholeSet = parseSet(whole);
    if (!partSet || !wholeSet || !hwloc_bitmap_isincluded(partSet.get(), wholeSet.get()))
        return describe(object) + " has a " + set + " outside its " + complete;
    return {};
}

// The defect of one object element; empty when it has none.
std::string findObjectDefect(const xmlNode* object) {
    if (needsOsIndex(object) && !isSmallOsIndex(plainValue(object, "os_index")))
        return describe(object) + " has no os_index below " + std::to_string(osIndexLimit);
    for (const char* name : setAttributes) {
        const xmlAttr* attribute = findAttribute(object, name);
        if (attribute && !isSetText(plainValue(attribute))) {
            const char* value = plainValue(attribute);
            return describe(object) + " has " + name + " \"" + (value ? value : "") +
                   "\", which is no set";
        }
    }
    for (const auto& [set, complete] : pairedSets) {
        std::string defect = findPairDefect(object, set, complete);
        if (!defect.empty())
            return defect;
    }
    return {};
}

// The first defective object element below `root`, depth first.
std::string findTreeDefect(const xmlNode* root) {
    std::vector<const xmlNode*> work{root};
    while (!work.empty()) {
        const xmlNode* node = work.back();
        work.pop_back();
        if (std::strcmp(text(node->name), "object") == 0) {
            std::string defect = findObjectDefect(node);
            if (!defect.empty())
                return defect;
        }
        for (const xmlNode* child = node->last; child; child = child->prev)
            if (child->type == XML_ELEMENT_NODE)
                work.push_back(child);
    }
    return {};
}

// hwloc 2 reads the formats of hwloc 1 too, by another path that trusts its input as much;
// every export of hwloc 2 says so in its root element.
bool isVersion2OrLater(const xmlNode* root) {
    const char* version = plainValue(root, "version");
    unsigned major = 0;
    unsigned minor = 0;
    return std::strcmp(text(root->name), "topology") == 0 && version &&
           std::sscanf(version, "%u.%u", &major, &minor) == 2 && major >= 2;
}

void ignoreXmlError(void*, const char*, ...) {}

Document read(const std::string& xml) {
    // libxml2 sets up its global state here once, not in a first parse that may race another.
    static const bool initialised = (xmlInitParser(), true);
    (void)initialised;
    // Some reports (of encodings, for one) reach libxml2's generic error handler whatever the
    // options say. hwloc's XML plugin points that handler at a function of its own and is
    // unloaded with the last topology, so the handler is set again before every read.
    xmlSetGenericErrorFunc(nullptr, ignoreXmlError);
    // As hwloc reads it (no entity substitution, no DTD loading), without libxml2's reports.
    const int options = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
    if (xml.size() >= INT_MAX)
        return Document(nullptr, xmlFreeDoc);
    return Document(xmlReadMemory(xml.data(), static_cast<int>(xml.size()), "", nullptr, options),
                    xmlFreeDoc);
}

}  // namespace

CpuTopologyXmlCheck::CpuTopologyXmlCheck(const std::string& xml) {
    const Document document = read(xml);
    const xmlNode* root = document ? xmlDocGetRootElement(document.get()) : nullptr;
    _wellFormed = root != nullptr;
    if (!_wellFormed)
        return;
    const xmlDtd* declaration = xmlGetIntSubset(document.get());
    if (declaration && !declaration->SystemID)
        _defect = "its document type declaration names no DTD file";
    else if (!isVersion2OrLater(root))
        _defect = "it is not in the format of hwloc 2 or later (<topology version=\"2.0\">)";
    else
        _defect = findTreeDefect(root);
}

}  // namespace tolm
