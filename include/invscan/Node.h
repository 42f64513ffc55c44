// The XML proxy library: an element tree with names, attributes in document order
// and children in document order. Nodes own their children; copy() is deep.
#ifndef INVSCAN_NODE_H
#define INVSCAN_NODE_H

#include "invscan_export.h"
#include "String.h"

#include <utility>
#include <vector>

class INVSCAN_API StringMap {
public:
    int getCount() const { return static_cast<int>(m_entries.size()); }
    // False when the index is out of range; key and value are then untouched.
    bool getEntry(int index, String& key, String& value) const;
    // Value of the first entry with this key, or null.
    const String* get(const String& key) const;
    void put(const String& key, const String& value);

private:
    std::vector<std::pair<String, String>> m_entries;
};

class INVSCAN_API Node {
public:
    explicit Node(const String& name) : m_name(name) {}
    ~Node();
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    const String& getName() const { return m_name; }
    StringMap& getAttributes() { return m_attributes; }
    const StringMap& getAttributes() const { return m_attributes; }
    int getChildCount() const { return static_cast<int>(m_children.size()); }
    Node* getChild(int index) const;
    void addChild(Node* child); // takes ownership

    Node* copy() const;

private:
    String m_name;
    StringMap m_attributes;
    std::vector<Node*> m_children;
};

#endif
