#include "invscan/Trace.h"

#include "invscan/CcLog.h"

#include <map>
#include <memory>

Tracer* Tracer::getInstance(int component) {
    static std::map<int, std::unique_ptr<Tracer>> tracers;
    auto& slot = tracers[component];
    if (!slot) slot.reset(new Tracer(component));
    return slot.get();
}

bool Tracer::isOn() const {
    return getCcLogHw()->isOn();
}

Trace::Trace(Tracer* tracer, const char* where) : m_on(tracer && tracer->isOn()), m_where(where) {}

Trace::~Trace() {
    if (m_on && !m_line.empty()) flush();
}

Trace& Trace::operator<<(const char* text) {
    if (m_on && text) m_line += text;
    return *this;
}

Trace& Trace::operator<<(const String& text) {
    if (m_on) m_line += text.toMultiByte();
    return *this;
}

Trace& Trace::operator<<(const std::string& text) {
    if (m_on) m_line += text;
    return *this;
}

Trace& Trace::operator<<(long value) {
    if (m_on) m_line += std::to_string(value);
    return *this;
}

Trace& Trace::operator<<(unsigned long value) {
    if (m_on) m_line += std::to_string(value);
    return *this;
}

Trace& Trace::endl(Trace& t) {
    if (t.m_on) t.flush();
    return t;
}

void Trace::flush() {
    getCcLogHw()->writeLine("TRACE", m_where, m_line.c_str());
    m_line.clear();
}
