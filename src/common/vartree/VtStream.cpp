// Stream classes and the line reader of helper output.
#include "invscan/VtStream.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

VtIStream::~VtIStream() = default;
VtOStream::~VtOStream() = default;

VtIStream_Unix::~VtIStream_Unix() = default;

long VtIStream_Unix::read(char* buf, unsigned long len) {
    if (m_fd == -1) return 0;
    for (;;) {
        ssize_t n = ::read(m_fd, buf, len);
        if (n < 0 && errno == EINTR) continue;
        return static_cast<long>(n);
    }
}

void VtIStream_Unix::close() {
    if (m_fd != -1) ::close(m_fd);
    m_fd = -1;
}

VtOStream_Unix::~VtOStream_Unix() = default;

long VtOStream_Unix::write(const char* buf, unsigned long len) {
    if (m_fd == -1) return 0;
    for (;;) {
        ssize_t n = ::write(m_fd, buf, len);
        if (n < 0 && errno == EINTR) continue;
        return static_cast<long>(n);
    }
}

void VtOStream_Unix::close() {
    if (m_fd != -1) ::close(m_fd);
    m_fd = -1;
}

long VtIStream_Memory::read(char* buf, unsigned long len) {
    size_t n = m_size - m_pos;
    if (n > len) n = len;
    if (m_chunk != 0 && n > m_chunk) n = m_chunk;
    // A long is at least 32 bits; never return more than it can carry.
    if (n > 0x40000000u) n = 0x40000000u;
    if (n) std::memcpy(buf, m_data + m_pos, n);
    m_pos += n;
    return static_cast<long>(n);
}

VtILineStream::VtILineStream(VtIStream* in) : m_in(in) {
    // Without a buffer the stream simply reads as empty.
    m_buf = static_cast<char*>(std::malloc(BUFFER_SIZE + 1));
    if (m_buf)
        m_buf[0] = '\0';
    else
        m_eof = true;
}

VtILineStream::~VtILineStream() {
    std::free(m_buf);
}

// Moves the unread rest to the front and reads into the free space once. False when
// nothing more can come in (end of input, error, or a full buffer, which ends the
// input too).
bool VtILineStream::fill() {
    if (m_eof || !m_in) {
        m_eof = true;
        return false;
    }
    if (m_pos > 0) {
        if (m_len > m_pos) std::memmove(m_buf, m_buf + m_pos, m_len - m_pos);
        m_len -= m_pos;
        m_pos = 0;
    }
    size_t room = BUFFER_SIZE - m_len;
    if (room == 0) {
        // A line that fills the whole buffer: the read into no free space reads
        // nothing, which is the end of input. The held bytes become the last line.
        m_eof = true;
        return false;
    }
    long n = m_in->read(m_buf + m_len, room);
    if (n <= 0) {
        m_eof = true;
        return false;
    }
    if (static_cast<unsigned long>(n) > room) n = static_cast<long>(room); // misbehaving stream
    m_len += static_cast<size_t>(n);
    return true;
}

const char* VtILineStream::nextLine(size_t* size) {
    if (!m_buf) {
        if (size) *size = 0;
        return nullptr;
    }
    char* start;
    char* end;          // the LF, or one past the last byte
    size_t scanned = 0; // bytes of the pending rest already searched for LF
    for (;;) {
        start = m_buf + m_pos;
        size_t avail = m_len - m_pos;
        end = avail > scanned
                  ? static_cast<char*>(std::memchr(start + scanned, '\n', avail - scanned))
                  : nullptr;
        if (end) break;
        scanned = avail;
        if (!fill()) {
            start = m_buf + m_pos;
            avail = m_len - m_pos;
            if (avail == 0) {
                if (size) *size = 0;
                return nullptr;
            }
            // Last line without LF, or a line longer than the buffer: hand out what
            // is held.
            end = start + avail;
            break;
        }
    }
    size_t rawLen = static_cast<size_t>(end - start);
    m_pos += rawLen;
    if (m_pos < m_len) ++m_pos; // step over the LF
    *end = '\0';                // the LF itself, or the spare byte past the buffer
    char* cr = static_cast<char*>(std::memchr(start, '\r', rawLen));
    if (cr) *cr = '\0';
    if (size) *size = std::strlen(start);
    return start;
}

char* VtILineStream::getline(char* dst, unsigned long len, int) {
    size_t n = 0;
    const char* line = nextLine(&n);
    if (!line) return nullptr;
    if (len == 0) return dst;
    if (n > len - 1) n = len - 1;
    std::memcpy(dst, line, n);
    dst[n] = '\0';
    return dst;
}
