// Line reader over byte streams.
#include "invscan/VtStream.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::vector<std::string> readLines(const std::string& text, size_t chunk,
                                   unsigned long len = 1024) {
    VtIStream_Memory mem(text.data(), text.size(), chunk);
    VtILineStream lines(&mem);
    std::vector<std::string> out;
    std::vector<char> buf(len ? len : 1);
    while (lines.getline(buf.data(), len, -1))
        out.push_back(buf.data());
    EXPECT_EQ(lines.getline(buf.data(), len, -1), nullptr); // stays at the end
    return out;
}

TEST(VtILineStream, SplitsLines) {
    using Lines = std::vector<std::string>;
    struct Case {
        std::string text;
        Lines lines;
    } cases[] = {
        {"", {}},
        {"a\nb\n", {"a", "b"}},
        {"a\nlast", {"a", "last"}},
        {"\n\n", {"", ""}},
        {"1.0 0\r\nx\n", {"1.0 0", "x"}},
        {"ab\rcd\nef\n", {"ab", "ef"}}, // text after a CR is lost
        {"\r", {""}},
        {std::string("a\0b\nc\n", 6), {"a", "c"}},
    };
    for (const Case& c : cases)
        for (size_t chunk : {0, 1, 2, 3})
            EXPECT_EQ(readLines(c.text, chunk), c.lines) << chunk;
}

TEST(VtILineStream, CutsToCallersBuffer) {
    EXPECT_EQ(readLines("abcdef\nxy\n", 0, 4), (std::vector<std::string>{"abc", "xy"}));
    EXPECT_EQ(readLines("abcdef\nxy\n", 1, 1), (std::vector<std::string>{"", ""}));
}

TEST(VtILineStream, LinesAcrossBufferRefills) {
    // Lines that straddle the end of the internal buffer and one that fills it.
    const size_t B = VtILineStream::BUFFER_SIZE;
    std::string a(B - 3, 'a');
    std::string b(10, 'b');
    std::string c(B + 5, 'c');
    std::string text = a + "\n" + b + "\n" + c + "\nend";
    std::vector<std::string> lines = readLines(text, 4096, 2 * B);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], a);
    EXPECT_EQ(lines[1], b);
    // A line longer than the buffer fills it; reading into no room reads nothing,
    // which ends the input with that buffer as the last line.
    EXPECT_EQ(lines[2], std::string(B, 'c'));
    // The longest line that goes on is one byte short of the buffer, with its LF.
    struct Case {
        size_t len;
        size_t lines;
    } cases[] = {{B - 1, 2}, {B, 1}};
    for (const Case& c : cases)
        EXPECT_EQ(readLines(std::string(c.len, 'f') + "\nnext\n", 4096, 2 * B).size(), c.lines)
            << c.len;
}

} // namespace
