// Stream-style trace used by the configuration parser classes:
//   Trace t(Tracer::getInstance(2), "HWParseNodeSink::onError");
//   t << "Message is " << msg << " at line " << line << Trace::endl;
// Nothing is formatted while the hardware trace channel is off.
#ifndef INVSCAN_TRACE_H
#define INVSCAN_TRACE_H

#include "invscan_export.h"
#include "String.h"

#include <string>

class INVSCAN_API Tracer {
public:
    static Tracer* getInstance(int component);
    int component() const { return m_component; }
    bool isOn() const;

private:
    explicit Tracer(int component) : m_component(component) {}
    int m_component;
};

class INVSCAN_API Trace {
public:
    Trace(Tracer* tracer, const char* where);
    ~Trace();
    Trace(const Trace&) = delete;
    Trace& operator=(const Trace&) = delete;

    Trace& operator<<(const char* text);
    Trace& operator<<(const String& text);
    Trace& operator<<(const std::string& text);
    Trace& operator<<(long value);
    Trace& operator<<(unsigned long value);
    Trace& operator<<(int value) { return *this << static_cast<long>(value); }
    Trace& operator<<(unsigned value) { return *this << static_cast<unsigned long>(value); }
    Trace& operator<<(Trace& (*modifier)(Trace&)) { return modifier(*this); }

    // Line-end modifier: writes the gathered line.
    static Trace& endl(Trace& t);

private:
    void flush();
    bool m_on;
    const char* m_where;
    std::string m_line;
};

#endif
