// Byte streams over which helper output travels, and the line reader that the
// response and dump parsers use.
#ifndef INVSCAN_VTSTREAM_H
#define INVSCAN_VTSTREAM_H

#include "invscan_export.h"

#include <cstddef>

class INVSCAN_API VtIStream {
public:
    virtual ~VtIStream();
    // Bytes read into buf (at most len); 0 at end of input, negative on error.
    virtual long read(char* buf, unsigned long len) = 0;
    virtual void close() = 0;
};

class INVSCAN_API VtOStream {
public:
    virtual ~VtOStream();
    // Bytes written; negative on error.
    virtual long write(const char* buf, unsigned long len) = 0;
    virtual void close() = 0;
};

// Streams over one file descriptor (-1 = closed). The destructors leave the
// descriptor open: whoever owns it closes it with close().
class INVSCAN_API VtIStream_Unix : public VtIStream {
public:
    explicit VtIStream_Unix(int fd) : m_fd(fd) {}
    ~VtIStream_Unix() override;
    long read(char* buf, unsigned long len) override;
    void close() override;
    int fd() const { return m_fd; }

private:
    int m_fd;
};

class INVSCAN_API VtOStream_Unix : public VtOStream {
public:
    explicit VtOStream_Unix(int fd) : m_fd(fd) {}
    ~VtOStream_Unix() override;
    long write(const char* buf, unsigned long len) override;
    void close() override;
    int fd() const { return m_fd; }

private:
    int m_fd;
};

// Reads from a caller's buffer, which must outlive the stream. `chunk` (0 = no limit)
// caps the bytes returned per read, to exercise readers on short reads.
class INVSCAN_API VtIStream_Memory : public VtIStream {
public:
    VtIStream_Memory(const char* data, size_t size, size_t chunk = 0)
        : m_data(data), m_size(size), m_chunk(chunk) {}
    long read(char* buf, unsigned long len) override;
    void close() override { m_pos = m_size; }

private:
    const char* m_data;
    size_t m_size;
    size_t m_chunk;
    size_t m_pos = 0;
};

// Splits a stream into lines. A line ends at LF; a CR cuts the line there (the rest
// up to the LF is dropped). The last bytes without LF form a last line. A line longer
// than the buffer ends the input: its first BUFFER_SIZE bytes are the last line. Does
// not own the stream.
class INVSCAN_API VtILineStream {
public:
    static const size_t BUFFER_SIZE = 409600;

    explicit VtILineStream(VtIStream* in);
    ~VtILineStream();
    VtILineStream(const VtILineStream&) = delete;
    VtILineStream& operator=(const VtILineStream&) = delete;

    // Copies the next line (at most len-1 bytes and a NUL) into dst and returns dst;
    // null at end of input. The third argument is unused (always -1).
    char* getline(char* dst, unsigned long len, int unused = -1);

    // The next line in place, valid until the next call; `size` receives its length
    // up to the first NUL. Null at end of input.
    const char* nextLine(size_t* size);

private:
    bool fill();

    VtIStream* m_in;
    bool m_eof = false;
    char* m_buf; // BUFFER_SIZE + 1
    size_t m_pos = 0;
    size_t m_len = 0;
};

#endif
