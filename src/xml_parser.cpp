// XML parser wrapper over Mini-XML.
//
// open: mode 1 loads the whole file with Mini-XML's text callback, so that every
//   whitespace-separated word of an element is one text node (the array form), under a container
//   node of ours; a file without any element does not parse. Mode 2 opens the file for writing at
//   once, so that a path that cannot be written fails here and not at close.
// findElement / collectAttr: Mini-XML's descending search below the node; the node itself never
//   matches.
// readValue / readArray: read the non-empty text nodes among the element's own children; the
//   empty text nodes Mini-XML keeps for whitespace between elements are skipped.
// writeValues: one text node per value, separated by one space; close saves with the wrap margin
//   off so that long arrays stay on their line.
#include "src/xml_parser.h"

#include <stdlib.h>
#include <string.h>

#include "foundation/status.h"

namespace {

constexpr int32_t kMaxIndent = 8;
constexpr char kTabs[] = "\t\t\t\t\t\t\t\t";
static_assert(sizeof kTabs == kMaxIndent + 1);

mxml_node_t* startOf(const tavrin_KELD_XmlParser* parser, mxml_node_t* node) {
    return node ? node : parser->tree;
}

bool isElement(mxml_node_t* node) {
    return mxmlGetType(node) == MXML_ELEMENT;
}

// The <?xml ...?> declaration is an element to Mini-XML, and the parent of the whole document.
bool isDeclaration(mxml_node_t* node) {
    const char* name = mxmlGetElement(node);
    return name && name[0] == '?';
}

// The next non-empty text node among the children of element, after `after` (null: from the
// first child). whitespace receives the node's leading-whitespace flag.
mxml_node_t* nextWord(mxml_node_t* element, mxml_node_t* after, int* whitespace) {
    mxml_node_t* child = after ? mxmlGetNextSibling(after) : mxmlGetFirstChild(element);
    for (; child; child = mxmlGetNextSibling(child)) {
        if (mxmlGetType(child) != MXML_TEXT) continue;
        const char* text = mxmlGetText(child, whitespace);
        if (text && text[0] != '\0') return child;
    }
    return nullptr;
}

const char* wordText(mxml_node_t* word) {
    return mxmlGetText(word, nullptr);
}

void printBadType() {
    printf("Unvalid data type.\n");
}

// Joins the element's words with single spaces into out (out_size >= 1), cutting at the end.
void joinWords(mxml_node_t* element, char* out, size_t out_size) {
    size_t used = 0;
    int whitespace = 0;
    for (mxml_node_t* word = nextWord(element, nullptr, &whitespace); word;
         word = nextWord(element, word, &whitespace)) {
        const char* text = wordText(word);
        if (used > 0 && whitespace && used + 1 < out_size) out[used++] = ' ';
        size_t length = strlen(text);
        size_t room = out_size - 1 - used;
        if (length > room) length = room;
        memcpy(out + used, text, length);
        used += length;
    }
    out[used] = '\0';
}

void parseNumber(const char* text, int32_t type, void* out, int32_t index) {
    switch (type) {
        case TAVRIN_KELD_XML_INT:
            static_cast<int32_t*>(out)[index] = atoi(text);
            break;
        case TAVRIN_KELD_XML_LONG:
            static_cast<int64_t*>(out)[index] = atoll(text);
            break;
        case TAVRIN_KELD_XML_FLOAT:
            static_cast<float*>(out)[index] = static_cast<float>(atof(text));
            break;
        default:
            static_cast<double*>(out)[index] = atof(text);
            break;
    }
}

bool isNumberType(int32_t type) {
    return type >= TAVRIN_KELD_XML_INT && type <= TAVRIN_KELD_XML_DOUBLE;
}

// Depth of an element below the document's root element, which is at depth 0.
int32_t depthOf(mxml_node_t* node) {
    int32_t depth = 0;
    for (mxml_node_t* p = mxmlGetParent(node); p; p = mxmlGetParent(p))
        if (isElement(p) && !isDeclaration(p)) depth++;
    return depth;
}

bool holdsElements(mxml_node_t* node) {
    for (mxml_node_t* c = mxmlGetFirstChild(node); c; c = mxmlGetNextSibling(c))
        if (isElement(c)) return true;
    return false;
}

const char* indentOf(mxml_node_t* node) {
    int32_t depth = depthOf(node);
    return kTabs + kMaxIndent - (depth < kMaxIndent ? depth : kMaxIndent);
}

// Mini-XML calls this around every element: a container opens and closes on lines of its own,
// a leaf stays on one line, and every element ends its line.
const char* whitespaceOf(mxml_node_t* node, int where) {
    if (isDeclaration(node)) return where == MXML_WS_AFTER_OPEN ? "\n" : nullptr;
    switch (where) {
        case MXML_WS_BEFORE_OPEN:
            return indentOf(node);
        case MXML_WS_AFTER_OPEN:
            // A childless element was written as <name />, and this ends its line.
            return holdsElements(node) || !mxmlGetFirstChild(node) ? "\n" : nullptr;
        case MXML_WS_BEFORE_CLOSE:
            return holdsElements(node) ? indentOf(node) : nullptr;
        default:
            return "\n";
    }
}

const char* typeName(int32_t type) {
    switch (type) {
        case TAVRIN_KELD_XML_TEXT:
            return "string";
        case TAVRIN_KELD_XML_INT:
            return "int";
        case TAVRIN_KELD_XML_LONG:
            return "int64";
        case TAVRIN_KELD_XML_FLOAT:
            return "float";
        default:
            return "double";
    }
}

mxml_node_t* addNumber(mxml_node_t* element, int whitespace, int32_t type, const void* values,
                       int32_t index) {
    switch (type) {
        case TAVRIN_KELD_XML_INT:
            return mxmlNewTextf(element, whitespace, "%d",
                                static_cast<const int32_t*>(values)[index]);
        case TAVRIN_KELD_XML_LONG:
            return mxmlNewTextf(element, whitespace, "%lld",
                                static_cast<long long>(static_cast<const int64_t*>(values)[index]));
        case TAVRIN_KELD_XML_FLOAT:
            return mxmlNewTextf(element, whitespace, "%f",
                                static_cast<double>(static_cast<const float*>(values)[index]));
        default:
            return mxmlNewTextf(element, whitespace, "%.10f",
                                static_cast<const double*>(values)[index]);
    }
}

uint32_t newParser(tavrin_KELD_XmlParser** parser, mxml_node_t* tree, FILE* out, int32_t mode) {
    auto* p = static_cast<tavrin_KELD_XmlParser*>(calloc(1, sizeof(tavrin_KELD_XmlParser)));
    if (!p) return TAV_ERROR_MALLOC;
    p->tree = tree;
    p->out = out;
    p->mode = mode;
    *parser = p;
    return TAV_OK;
}

}  // namespace

const char* TavrinKELD_XmlParser_getVersion(void) {
    return TAVRIN_KELD_XML_PARSER_VERSION;
}

uint32_t TavrinKELD_XmlParser_openStream(tavrin_KELD_XmlParser** parser, FILE* in) {
    if (!parser || !in) return TAV_ERROR_PARAM;
    // Loading under a node of our own keeps every node Mini-XML makes attached to it, so that a
    // start tag broken at the head of the file is freed with the rest.
    mxml_node_t* top = mxmlNewElement(MXML_NO_PARENT, "tavrin_document");
    if (!top) return TAV_ERROR_MALLOC;
    if (!mxmlLoadFile(top, in, MXML_TEXT_CALLBACK) || !holdsElements(top)) {
        mxmlDelete(top);
        return TAV_ERROR_GENERIC;
    }
    uint32_t status = newParser(parser, top, nullptr, TAVRIN_KELD_XML_READ);
    if (status != TAV_OK) mxmlDelete(top);
    return status;
}

uint32_t TavrinKELD_XmlParser_open(tavrin_KELD_XmlParser** parser, const char* path, int32_t mode) {
    if (!parser || !path) return TAV_ERROR_PARAM;
    if (mode == TAVRIN_KELD_XML_READ) {
        FILE* in = fopen(path, "r");
        if (!in) return TAV_ERROR_GENERIC;
        uint32_t status = TavrinKELD_XmlParser_openStream(parser, in);
        fclose(in);
        return status;
    }
    if (mode != TAVRIN_KELD_XML_WRITE) return TAV_ERROR_PARAM;
    FILE* out = fopen(path, "w");
    if (!out) return TAV_ERROR_GENERIC;
    mxml_node_t* tree = mxmlNewXML("1.0");
    uint32_t status = tree ? newParser(parser, tree, out, mode) : TAV_ERROR_MALLOC;
    if (status != TAV_OK) {
        if (tree) mxmlDelete(tree);
        fclose(out);
    }
    return status;
}

uint32_t TavrinKELD_XmlParser_close(tavrin_KELD_XmlParser** parser) {
    if (!parser || !*parser) return TAV_ERROR_PARAM;
    tavrin_KELD_XmlParser* p = *parser;
    uint32_t status = TAV_OK;
    if (p->out) {
        mxmlSetWrapMargin(0);
        if (mxmlSaveFile(p->tree, p->out, whitespaceOf) < 0) status = TAV_ERROR_GENERIC;
        if (fclose(p->out) != 0) status = TAV_ERROR_GENERIC;
    }
    mxmlDelete(p->tree);
    free(p);
    *parser = nullptr;
    return status;
}

uint32_t TavrinKELD_XmlParser_findElement(const tavrin_KELD_XmlParser* parser, mxml_node_t* node,
                                          const char* name, const char* attr, const char* value,
                                          mxml_node_t** found) {
    if (!parser || !name || !found) return TAV_ERROR_PARAM;
    mxml_node_t* top = startOf(parser, node);
    *found = mxmlFindElement(top, top, name, attr, value, MXML_DESCEND);
    return *found ? TAV_OK : TAV_ERROR_NOT_FOUND;
}

uint32_t TavrinKELD_XmlParser_collectAttr(const tavrin_KELD_XmlParser* parser, mxml_node_t* node,
                                          const char* name, const char* attr, const char** values,
                                          int32_t capacity, int32_t* count) {
    if (!parser || !name || !attr || !values || capacity < 1 || !count) return TAV_ERROR_PARAM;
    mxml_node_t* top = startOf(parser, node);
    int32_t n = 0;
    for (mxml_node_t* e = mxmlFindElement(top, top, name, attr, nullptr, MXML_DESCEND);
         e && n < capacity; e = mxmlFindElement(e, top, name, attr, nullptr, MXML_DESCEND))
        values[n++] = mxmlElementGetAttr(e, attr);
    *count = n;
    return n > 0 ? TAV_OK : TAV_ERROR_NOT_FOUND;
}

uint32_t TavrinKELD_XmlParser_readValue(const tavrin_KELD_XmlParser* parser, mxml_node_t* node,
                                        const char* name, const char* attr, const char* value,
                                        int32_t type, void* out, size_t out_size) {
    if (!parser || !name || !out) return TAV_ERROR_PARAM;
    if (type != TAVRIN_KELD_XML_TEXT && !isNumberType(type)) {
        printBadType();
        return TAV_ERROR_PARAM;
    }
    if (type == TAVRIN_KELD_XML_TEXT && out_size < 1) return TAV_ERROR_PARAM;
    mxml_node_t* element = nullptr;
    uint32_t status = TavrinKELD_XmlParser_findElement(parser, node, name, attr, value, &element);
    if (status != TAV_OK) return status;
    mxml_node_t* word = nextWord(element, nullptr, nullptr);
    if (!word) return TAV_ERROR_NOT_FOUND;
    if (type == TAVRIN_KELD_XML_TEXT)
        joinWords(element, static_cast<char*>(out), out_size);
    else
        parseNumber(wordText(word), type, out, 0);
    return TAV_OK;
}

uint32_t TavrinKELD_XmlParser_readArray(const tavrin_KELD_XmlParser* parser, mxml_node_t* node,
                                        const char* name, const char* attr, const char* value,
                                        int32_t type, void* out, int32_t capacity,
                                        int32_t* length) {
    if (!parser || !name || !out || capacity < 1 || !length) return TAV_ERROR_PARAM;
    if (!isNumberType(type)) {
        printBadType();
        return TAV_ERROR_PARAM;
    }
    mxml_node_t* element = nullptr;
    uint32_t status = TavrinKELD_XmlParser_findElement(parser, node, name, attr, value, &element);
    if (status != TAV_OK) return status;
    const char* count_text = mxmlElementGetAttr(element, "length");
    if (!count_text) return TAV_ERROR_NOT_FOUND;
    int32_t count = atoi(count_text);
    if (count < 1) return TAV_ERROR_NOT_FOUND;
    *length = count;
    int32_t wanted = count < capacity ? count : capacity;
    mxml_node_t* word = nullptr;
    for (int32_t i = 0; i < wanted; i++) {
        word = nextWord(element, word, nullptr);
        if (!word) return TAV_ERROR_NOT_FOUND;
        parseNumber(wordText(word), type, out, i);
    }
    return TAV_OK;
}

uint32_t TavrinKELD_XmlParser_addElement(tavrin_KELD_XmlParser* parser, mxml_node_t* parent,
                                         const char* name, mxml_node_t** element) {
    if (!parser || !name || !element) return TAV_ERROR_PARAM;
    if (parser->mode != TAVRIN_KELD_XML_WRITE) return TAV_ERROR_STATE;
    *element = mxmlNewElement(startOf(parser, parent), name);
    return *element ? TAV_OK : TAV_ERROR_MALLOC;
}

uint32_t TavrinKELD_XmlParser_writeValues(tavrin_KELD_XmlParser* parser, mxml_node_t* parent,
                                          const char* name, int32_t type, const void* values,
                                          int32_t length) {
    if (!parser || !name || !values || length < 1) return TAV_ERROR_PARAM;
    if (type != TAVRIN_KELD_XML_TEXT && !isNumberType(type)) {
        printBadType();
        return TAV_ERROR_PARAM;
    }
    if (type == TAVRIN_KELD_XML_TEXT && length != 1) return TAV_ERROR_PARAM;
    mxml_node_t* element = nullptr;
    uint32_t status = TavrinKELD_XmlParser_addElement(parser, parent, name, &element);
    if (status != TAV_OK) return status;
    mxmlElementSetAttrf(element, "length", "%d", length);
    mxmlElementSetAttr(element, "type", typeName(type));
    if (type == TAVRIN_KELD_XML_TEXT)
        return mxmlNewText(element, 0, static_cast<const char*>(values)) ? TAV_OK
                                                                         : TAV_ERROR_MALLOC;
    for (int32_t i = 0; i < length; i++)
        if (!addNumber(element, i > 0, type, values, i)) return TAV_ERROR_MALLOC;
    return TAV_OK;
}
