#include "invscan/Node.h"

bool StringMap::getEntry(int index, String& key, String& value) const {
    if (index < 0 || index >= getCount()) return false;
    key = m_entries[static_cast<size_t>(index)].first;
    value = m_entries[static_cast<size_t>(index)].second;
    return true;
}

const String* StringMap::get(const String& key) const {
    for (const auto& e : m_entries)
        if (e.first == key) return &e.second;
    return nullptr;
}

void StringMap::put(const String& key, const String& value) {
    m_entries.emplace_back(key, value);
}

Node::~Node() {
    for (Node* c : m_children)
        delete c;
}

Node* Node::getChild(int index) const {
    if (index < 0 || index >= getChildCount()) return nullptr;
    return m_children[static_cast<size_t>(index)];
}

void Node::addChild(Node* child) {
    if (child) m_children.push_back(child);
}

Node* Node::copy() const {
    Node* n = new Node(m_name);
    n->m_attributes = m_attributes;
    n->m_children.reserve(m_children.size());
    for (const Node* c : m_children)
        n->m_children.push_back(c->copy());
    return n;
}
