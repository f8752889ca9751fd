// tavrin_KELD_XmlParser: a thin layer over Mini-XML for the parameter, property and dump files.
//
// Elements are addressed by a path of three parts: element name, attribute name and attribute
// value; the attribute parts may be null (any element of that name, or any with that attribute).
// Every search looks at the descendants of a node, in document order; a null node stands for the
// document itself. Values are the text of an element; an array element carries its count in its
// `length` attribute and holds one text word per value.
#pragma once

#include <mxml.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#define TAVRIN_KELD_XML_PARSER_VERSION "Tavrin Internal XML Parser Ver.3.2.0 2021-06-30"

// Open modes.
static const int32_t TAVRIN_KELD_XML_READ = 1;
static const int32_t TAVRIN_KELD_XML_WRITE = 2;

// Value types of reads and writes.
static const int32_t TAVRIN_KELD_XML_TEXT = 1;    // char buffer; written as "string"
static const int32_t TAVRIN_KELD_XML_INT = 2;     // int32_t; written as "int"
static const int32_t TAVRIN_KELD_XML_LONG = 3;    // int64_t; written as "int64"
static const int32_t TAVRIN_KELD_XML_FLOAT = 4;   // float; written as "float"
static const int32_t TAVRIN_KELD_XML_DOUBLE = 5;  // double; written as "double"

struct tavrin_KELD_XmlParser {
    mxml_node_t* tree;  // read: a container of the file's top-level nodes; write: the declaration
    FILE* out;          // the file a write-mode document is saved into at close
    int32_t mode;
};

const char* TavrinKELD_XmlParser_getVersion(void);

// Mode 1 parses the whole file; mode 2 creates (truncates) the file and starts a document with
// the declaration version "1.0". TAV_ERROR_PARAM for a null argument or another mode,
// TAV_ERROR_GENERIC when the file does not open, does not parse or holds no element at all,
// TAV_ERROR_MALLOC when the
// record or the tree cannot be made. *parser is set only on success.
uint32_t TavrinKELD_XmlParser_open(tavrin_KELD_XmlParser** parser, const char* path, int32_t mode);

// Mode 1 over an open stream, which stays the caller's.
uint32_t TavrinKELD_XmlParser_openStream(tavrin_KELD_XmlParser** parser, FILE* in);

// Saves a write-mode document (tab indentation, at most 8 tabs; a newline after every element,
// none inside an element that holds only text), frees the tree and the record and clears
// *parser. TAV_ERROR_GENERIC when the save fails; the tree is freed all the same.
uint32_t TavrinKELD_XmlParser_close(tavrin_KELD_XmlParser** parser);

// The first descendant of node (null: the document) matching the path; TAV_ERROR_NOT_FOUND
// when there is none.
uint32_t TavrinKELD_XmlParser_findElement(const tavrin_KELD_XmlParser* parser, mxml_node_t* node,
                                          const char* name, const char* attr, const char* value,
                                          mxml_node_t** found);

// The attribute's value of every descendant element called name that has it, in document order,
// at most capacity of them. The texts belong to the tree. TAV_ERROR_NOT_FOUND when none.
uint32_t TavrinKELD_XmlParser_collectAttr(const tavrin_KELD_XmlParser* parser, mxml_node_t* node,
                                          const char* name, const char* attr, const char** values,
                                          int32_t capacity, int32_t* count);

// The value of the element at the path. TEXT copies the element's words, joined by single
// spaces, cut to out_size - 1 bytes; INT reads by atoi, LONG by atoll, FLOAT and DOUBLE by atof;
// out_size is read for TEXT only. TAV_ERROR_NOT_FOUND when the element is missing or holds no
// text, and *out is then untouched. Another type prints "Unvalid data type." and gives
// TAV_ERROR_PARAM.
uint32_t TavrinKELD_XmlParser_readValue(const tavrin_KELD_XmlParser* parser, mxml_node_t* node,
                                        const char* name, const char* attr, const char* value,
                                        int32_t type, void* out, size_t out_size);

// The values of an array element: its `length` attribute is the count, its text words the
// values (INT, LONG, FLOAT or DOUBLE). Up to capacity values are stored; *length receives the
// attribute's count, which may exceed capacity. TAV_ERROR_NOT_FOUND when the element or its
// `length` is missing, the count is below 1, or it holds fewer words than it should store.
uint32_t TavrinKELD_XmlParser_readArray(const tavrin_KELD_XmlParser* parser, mxml_node_t* node,
                                        const char* name, const char* attr, const char* value,
                                        int32_t type, void* out, int32_t capacity, int32_t* length);

// A plain element (a container) under parent (null: the document) of a write-mode document.
uint32_t TavrinKELD_XmlParser_addElement(tavrin_KELD_XmlParser* parser, mxml_node_t* parent,
                                         const char* name, mxml_node_t** element);

// An element with attributes `length` and `type` and the values as its text: "%d" for INT,
// "%lld" for LONG, "%f" for FLOAT, "%.10f" for DOUBLE, the text itself for TEXT (values is then
// a const char* and length must be 1). values points to length values of the type.
uint32_t TavrinKELD_XmlParser_writeValues(tavrin_KELD_XmlParser* parser, mxml_node_t* parent,
                                          const char* name, int32_t type, const void* values,
                                          int32_t length);
