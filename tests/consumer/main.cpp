// A program that embeds the library as its users do: one include, one group asked
// for by name, its table read through the public API.
#include <invscan/invscan.h>

#include <cstdio>
#include <memory>
#include <string.h> // the C header, never the library's String.h

int main() {
    GroupFactory* factory = GroupFactory::getInstance();
    factory->initialise();
    std::unique_ptr<ZelGroup> group(factory->getGroup(String("Scan Info")));
    std::unique_ptr<ZelTable> table(group ? group->getTable() : nullptr);
    if (!table || table->getRowCount() != 1) return 1;
    std::printf("%s: %lu row, %zu bytes of name\n", table->getGroupName(), table->getRowCount(),
                strlen(table->getGroupName()));
    return 0;
}
