// The safe opener against every shape a planted name can take: the caller's own link
// is followed, another user's is not, and nothing but the expected kind of file is
// taken, without waiting.
#include "invscan/SafeFile.h"

#include "../common/planted.h"
#include "../common/run_command.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using testrun::readFile;
using testrun::writeFile;

enum Op { READ, READ_WRITE, APPEND, CREATE, FOLDER };

int openAs(Op op, const std::string& path, std::string* why) {
    switch (op) {
    case READ:
        return safefile::openRead(path.c_str(), why);
    case READ_WRITE:
        return safefile::openReadWrite(path.c_str(), why);
    case APPEND:
        return safefile::openAppend(path.c_str(), 0600, why);
    case CREATE:
        return safefile::createNew(path.c_str(), 0600, why);
    default:
        return safefile::openDir(path.c_str(), why);
    }
}

} // namespace

TEST(SafeFile, NamesAndWhatTheyAre) {
    INVSCAN_NEEDS_ROOT();
    planted::NobodysFolder folder;
    ASSERT_FALSE(folder.dir().empty());
    const std::string n = folder.dir() + "/", r = folder.rootFile("");
    writeFile(r + "file", "root's\n");
    mkdir((r + "dir").c_str(), 0700);
    ASSERT_EQ(symlink("file", (r + "own-link").c_str()), 0);
    ASSERT_EQ(symlink("own-link", (r + "own-chain").c_str()), 0);
    ASSERT_EQ(symlink("dir", (r + "own-dirlink").c_str()), 0);
    ASSERT_EQ(symlink("made", (r + "own-dangling").c_str()), 0);
    ASSERT_EQ(mkfifo((r + "fifo").c_str(), 0600), 0);
    ASSERT_EQ(planted::asNobody([&]() {
                  bool ok = symlink((r + "file").c_str(), (n + "link").c_str()) == 0 &&
                            symlink((r + "dir").c_str(), (n + "dirlink").c_str()) == 0 &&
                            symlink((r + "absent").c_str(), (n + "dangling").c_str()) == 0 &&
                            mkfifo((n + "fifo").c_str(), 0666) == 0;
                  return ok ? "" : "cannot plant";
              }),
              "");
    // Another user's link as a folder on the way is refused as at the end.
    ASSERT_EQ(planted::asNobody([&]() {
                  return symlink((r + "dir").c_str(), (n + "via").c_str()) == 0 ? "" : "no via";
              }),
              "");
    writeFile(r + "dir/inside", "root's\n");
    // The caller's own link to another user's link is still refused.
    ASSERT_EQ(symlink((n + "link").c_str(), (r + "own-to-foreign").c_str()), 0);
    const std::string foreign = "is a symbolic link owned by another user";
    const struct {
        Op op;
        std::string path;
        std::string refusal; // empty: opened
    } cases[] = {
        {READ, r + "file", ""},
        {READ, n + "via/inside", "via: " + foreign},
        {APPEND, n + "via/new", "via: " + foreign},
        {CREATE, n + "via/new", "via: " + foreign},
        {READ, r + "own-dirlink/inside", ""},
        {READ, r + "own-link", ""},
        {READ, r + "own-chain", ""},
        {READ, n + "link", foreign},
        {READ, r + "own-to-foreign", foreign},
        {READ, r + "fifo", "is not a regular file"},
        {READ, n + "fifo", "is not a regular file"},
        {READ, "/dev/zero", "is not a regular file"},
        {READ, r + "dir", "is a folder"},
        {READ, r + "missing", "No such file or directory"},
        {READ, "", "no file name"},
        {READ_WRITE, n + "link", foreign},
        {READ_WRITE, n + "fifo", "is not a regular file"},
        {APPEND, n + "link", foreign},
        {APPEND, n + "dangling", foreign},
        {APPEND, n + "fifo", "is not a regular file"},
        {APPEND, r + "own-dangling", ""},
        {CREATE, n + "link", "is already there"},
        {CREATE, n + "dangling", "is already there"},
        {CREATE, n + "fifo", "is already there"},
        {CREATE, r + "new", ""},
        {FOLDER, r + "dir", ""},
        {FOLDER, r + "own-dirlink", ""},
        {FOLDER, n + "dirlink", foreign},
        {FOLDER, r + "file", "Not a directory"},
    };
    for (const auto& c : cases) {
        bool done = planted::returnsInTime([&]() {
            std::string why;
            int fd = openAs(c.op, c.path, &why);
            if (fd >= 0) close(fd);
            if (!c.refusal.empty()) return fd < 0 && why == c.refusal;
            return fd >= 0;
        });
        EXPECT_TRUE(done) << c.op << " " << c.path;
    }
    EXPECT_EQ(readFile(r + "file"), "root's\n");
    struct stat st;
    EXPECT_NE(stat((r + "absent").c_str(), &st), 0); // no file made through the link
    EXPECT_EQ(stat((r + "made").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
}

class SafeFileIn : public testrun::TempDirTest {};

TEST_F(SafeFileIn, ReadAllHoldsItsCap) {
    const std::string f = dir + "/f";
    writeFile(f, std::string(1000, 'x'));
    std::string out, why;
    bool tooLarge = false;
    EXPECT_TRUE(safefile::readAll(f.c_str(), 1000, &out, &why, &tooLarge));
    EXPECT_EQ(out.size(), 1000u);
    EXPECT_FALSE(safefile::readAll(f.c_str(), 999, &out, &why, &tooLarge));
    EXPECT_TRUE(tooLarge);
    EXPECT_EQ(why, "is too large");
    EXPECT_TRUE(out.empty());
}

TEST_F(SafeFileIn, PrivateFolder) {
    const char* tmpl = dir.c_str();
    const struct {
        mode_t mode;
        bool ok;
    } cases[] = {{0700, true}, {0755, true}, {0777, false}, {01777, false}};
    for (const auto& c : cases) {
        chmod(tmpl, c.mode);
        int fd = open(tmpl, O_RDONLY | O_DIRECTORY);
        std::string why;
        EXPECT_EQ(safefile::privateFolder(fd, &why), c.ok) << std::oct << c.mode;
        EXPECT_EQ(why, c.ok ? "" : "other users may write in it");
        close(fd);
    }
}
