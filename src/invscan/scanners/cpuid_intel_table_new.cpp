// Brand-string search over the Intel model table (rows in intel_model_table.cpp).
//
// Brand strings carry the model number in many shapes ("T7200", "i5 CPU M 520",
// "Core(TM) CPU 560" on parts the firmware did not brand), and a model number may
// stand in several rows: the same part in two steppings, or one number in two
// families. Each pass below is accepted only when it leaves exactly one row, so the
// answer never depends on which duplicate happens to come first.
#include "invscan/cpuid_intel_table_new.h"

#include "invscan/Toolbox.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <locale>
#include <sstream>

namespace {

const char* const kSrc = "./../../../src/invscan/scanners/cpuid_intel_table_new";

bool g_debugInit = false;
bool g_debug = false;

bool debugOn() {
    if (!g_debugInit) {
        const char* env = std::getenv("INVSCAN_CPU_DEBUG");
        g_debug = env && *env && std::strcmp(env, "0") != 0;
        g_debugInit = true;
    }
    return g_debug;
}

void logprefix(const char* file, int line) {
    std::fprintf(stderr, "%s(%d) - ", file, line);
}

#if defined(__GNUC__)
__attribute__((format(printf, 1, 2)))
#endif
void logprintf(const char* fmt, ...) {
    std::va_list args;
    va_start(args, fmt);
    std::vfprintf(stderr, fmt, args);
    va_end(args);
}

#define INTEL_DEBUG(...)                                                                           \
    do {                                                                                           \
        if (debugOn()) {                                                                           \
            logprefix(kSrc, __LINE__);                                                             \
            logprintf(__VA_ARGS__);                                                                \
        }                                                                                          \
    } while (0)

bool isDigit(char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}
bool isAlpha(char c) {
    return std::isalpha(static_cast<unsigned char>(c)) != 0;
}

// IntelCheckModelNumber on the first len characters of model.
bool checkModel(const char* brand, const char* model, size_t len) {
    const char* first = nullptr;
    for (const char* p = std::strchr(brand, ' '); p; p = std::strchr(p + 1, ' ')) {
        if (len > 0 && p[1] != model[0]) continue;
        if (std::strncmp(p + 1, model, len) != 0) continue;
        // strncmp matched len characters, so p[1 + len] is at most the terminator.
        if (p[1 + len] == ' ') return true;
        if (!first) first = p;
    }
    return first && first[1 + len] == '\0';
}

// Length of the model without its trailing letters, or 0 when there are none to strip.
size_t strippedLength(const char* model) {
    size_t len = std::strlen(model);
    if (len < 2) return 0;
    size_t end = len;
    while (end > 0 && isAlpha(model[end - 1]))
        --end;
    return end == len ? 0 : end;
}

// The letters after the leading character and its digits: "UM" of "470UM".
const char* modelSuffix(const char* model) {
    if (!*model) return model;
    const char* p = model + 1;
    while (isDigit(*p))
        ++p;
    return p;
}

bool speedMatches(const IntelModelRow& row, int speed) {
    const float s = static_cast<float>(speed);
    return row.speed - 10.0f < s && s < row.speed + 10.0f;
}

bool signatureMatches(const IntelModelRow& row, uint32_t sig) {
    return row.signature != 0 && row.signature == sig;
}

int clampedProduct(int a, int b) {
    long long v = static_cast<long long>(a) * b;
    return v > INT_MAX ? INT_MAX : static_cast<int>(v);
}

// Counts the rows that satisfy hit over the whole table; last is the last of them.
template <class Pred> int countHits(Pred hit, int& last) {
    int hits = 0;
    for (unsigned i = 0; newIntelTable[i].brand != INTEL_TABLE_END; ++i) {
        if (hit(newIntelTable[i])) {
            ++hits;
            last = static_cast<int>(i);
        }
    }
    return hits;
}

const char* guessFamily(const char* brand, int& index) {
    static const char* const kGuesses[] = {"Pentium 4 M", "Pentium 4 EE", "Pentium 4",
                                           "Pentium M",   "Pentium EE",   "Pentium",
                                           "Celeron M",   "Celeron D",    "Celeron"};
    index = -1;
    if (std::strstr(brand, "Pentium")) {
        const bool mobile = std::strstr(brand, " M ") || std::strstr(brand, " Mobile ");
        const bool extreme = std::strstr(brand, " Extreme Edition") != nullptr;
        const int base = std::strstr(brand, " 4 ") ? 0 : 3;
        index = base + (mobile ? 0 : extreme ? 1 : 2);
    } else if (std::strstr(brand, "Celeron")) {
        index = std::strstr(brand, " M ") ? 6 : std::strstr(brand, " D ") ? 7 : 8;
    }
    return index < 0 ? nullptr : kGuesses[index];
}

} // namespace

void IntelSetDebug(bool on) {
    g_debugInit = true;
    g_debug = on;
}

bool IntelDebug() {
    return debugOn();
}

PhysicalProcessor::PhysicalProcessor() {
    brandString[0] = '\0';
}

void PhysicalProcessor::setBrand(const char* brand) {
    std::snprintf(brandString, sizeof brandString, "%s", brand ? brand : "");
}

bool IntelCheckBrand(const char* brand, int code) {
    if (!brand) return false;
    const bool core = std::strstr(brand, "Core") != nullptr;
    switch (code) {
    case 0:
        return std::strstr(brand, "Pentium") != nullptr;
    case 1:
        return std::strstr(brand, "Celeron") != nullptr;
    case 2:
        return std::strstr(brand, "Xeon") != nullptr;
    case 4:
        return core;
    case 5:
        return core && Toolbox::strcasestr(brand, "i3");
    case 6:
        return core && Toolbox::strcasestr(brand, "i5");
    case 7:
        return core && Toolbox::strcasestr(brand, "i7");
    case 8:
        return std::strstr(brand, "Atom") != nullptr;
    case 9:
        return core && Toolbox::strcasestr(brand, "i9");
    default:
        return false; // 3 is Itanium: no x86 brand string names it
    }
}

bool IntelCheckModelNumber(const char* brand, const char* model) {
    if (!brand || !model) return false;
    return checkModel(brand, model, std::strlen(model));
}

int IntelGetMHzFromBrandstring(const char* brand) {
    if (!brand) return -1;
    int factor = 1;
    const char* unit = std::strstr(brand, "MHz");
    if (!unit) {
        unit = std::strstr(brand, "GHz");
        factor = 1000;
    }
    if (!unit) return -1;

    const char* p = unit;
    while (p > brand && p[-1] == ' ')
        --p;
    const char* const end = p;
    while (p > brand && (isDigit(p[-1]) || p[-1] == '.'))
        --p;

    // Saturate: a real clock has a handful of digits, garbage may have hundreds.
    const long long kCap = 1000000000LL;
    long long whole = 0;
    const char* q = p;
    for (; q < end && isDigit(*q); ++q)
        whole = std::min(kCap, whole * 10 + (*q - '0'));
    if (whole < 1) return -1;
    if (factor == 1) return static_cast<int>(whole);

    long long frac = 0;
    int fracDigits = 0;
    const char* f = q;
    if (q < end && *q == '.') {
        for (f = q + 1; f < end && isDigit(*f); ++f, ++fracDigits) {
            if (fracDigits < 4) frac = frac * 10 + (*f - '0');
        }
    }
    if (whole > kCap / 1000) return static_cast<int>(kCap);
    if (fracDigits == 0) return static_cast<int>(whole * 1000);
    if (fracDigits < 4) {
        static const long long kScale[] = {1, 100, 10, 1};
        return static_cast<int>(whole * 1000 + frac * kScale[fracDigits]);
    }
    // Parsed in the classic locale: the host or a group may have set a decimal comma,
    // and strtod would then stop at the '.'.
    std::istringstream in(std::string(p, f));
    in.imbue(std::locale::classic());
    double value = 0.0;
    in >> value;
    const double mhz = value * 1000.0;
    return mhz >= static_cast<double>(kCap) ? static_cast<int>(kCap) : static_cast<int>(mhz);
}

std::string stripModel(const char* model) {
    if (!model) return std::string();
    return std::string(model, strippedLength(model));
}

bool IntelLookupNewTable(PhysicalProcessor& proc) {
    char brand[PhysicalProcessor::BRAND_SIZE];
    std::memcpy(brand, proc.brandString, sizeof brand);
    brand[sizeof brand - 1] = '\0';

    proc.familyName = "Unknown";
    proc.modelName = "Unknown";
    proc.outCoresPerPackage = -1;
    proc.outLogicalPerPackage = -1;

    const uint32_t sig = proc.signature & 0xFFFFFu;
    const int speed = IntelGetMHzFromBrandstring(brand);
    INTEL_DEBUG("IntelLookupNewTable() STARTING brandstring='%s' signature=0x%X speed=%d\n", brand,
                sig, speed);

    // The brand check depends on the code alone: once per code, not once per row.
    bool brandOk[10];
    for (int code = 0; code < 10; ++code)
        brandOk[code] = IntelCheckBrand(brand, code);
    auto brandMatches = [&](const IntelModelRow& r) { return r.brand < 10 && brandOk[r.brand]; };
    auto brandAndModel = [&](const IntelModelRow& r) {
        return brandMatches(r) && IntelCheckModelNumber(brand, r.model);
    };

    int last = -1;
    int selected = -1;
    const int hits1 = countHits(brandAndModel, last);
    INTEL_DEBUG("IntelLookupNewTable() ITERATION 1 hits=%d\n", hits1);
    if (hits1 == 1) selected = last;

    if (selected < 0 && hits1 > 1) {
        int guessIndex;
        const char* guess = guessFamily(brand, guessIndex);
        INTEL_DEBUG("IntelGuessFamily() FINISHED family = %d\n", guessIndex);
        if (guess) {
            int n = countHits(
                [&](const IntelModelRow& r) {
                    return brandMatches(r) && std::strcmp(r.family, guess) == 0 &&
                           IntelCheckModelNumber(brand, r.model);
                },
                last);
            INTEL_DEBUG("IntelLookupNewTable() ITERATION 1A hits=%d\n", n);
            if (n == 1) selected = last;
        }
        if (selected < 0 && speed > 0) {
            int n = countHits(
                [&](const IntelModelRow& r) {
                    return brandMatches(r) && speedMatches(r, speed) &&
                           IntelCheckModelNumber(brand, r.model);
                },
                last);
            INTEL_DEBUG("IntelLookupNewTable() ITERATION 1B hits=%d\n", n);
            if (n == 1) selected = last;
        }
        if (selected < 0) {
            int n = countHits(
                [&](const IntelModelRow& r) {
                    return brandMatches(r) && signatureMatches(r, sig) &&
                           IntelCheckModelNumber(brand, r.model);
                },
                last);
            INTEL_DEBUG("IntelLookupNewTable() ITERATION 1C hits=%d\n", n);
            if (n == 1) selected = last;
        }
    }

    if (selected < 0) {
        // "i5 CPU M 520" for the row 520M: number and letters stand apart.
        int n = countHits(
            [&](const IntelModelRow& r) {
                if (!brandMatches(r) || !speedMatches(r, speed)) return false;
                const size_t stripped = strippedLength(r.model);
                const char* suffix = modelSuffix(r.model);
                return stripped > 0 && *suffix && checkModel(brand, r.model, stripped) &&
                       checkModel(brand, suffix, std::strlen(suffix));
            },
            last);
        INTEL_DEBUG("IntelLookupNewTable() ITERATION 1D hits=%d\n", n);
        if (n == 1) selected = last;
    }

    if (selected < 0 && std::strstr(brand, " Core(")) {
        // Early firmware left the i3/i5/i7 out of some brand strings; any hit will do,
        // the last one wins.
        INTEL_DEBUG("IntelLookupNewTable() check for incorrectly branded Core iX...\n");
        int n = countHits(
            [&](const IntelModelRow& r) {
                if (r.brand != 5 && r.brand != 6 && r.brand != 7 && r.brand != 9) return false;
                if (!((r.signature == 0 && speedMatches(r, speed)) || r.signature == sig))
                    return false;
                return IntelCheckModelNumber(brand, r.model);
            },
            last);
        INTEL_DEBUG("IntelLookupNewTable() check for incorrectly branded Core iX result = %d\n", n);
        if (n > 0) selected = last;
    }

    if (selected < 0 && speed >= 1) {
        auto brandSigSpeed = [&](const IntelModelRow& r) {
            return brandMatches(r) && signatureMatches(r, sig) && speedMatches(r, speed);
        };
        int first = -1;
        const int n2 = countHits(brandSigSpeed, last);
        INTEL_DEBUG("IntelLookupNewTable() ITERATION 2 hits=%d\n", n2);
        if (n2 == 1) {
            selected = last;
        } else if (n2 > 1) {
            // Same part in several speed grades of one row family: take the first when
            // all agree once the letters are gone.
            size_t firstLen = 0;
            int agreeing = 0;
            bool same = true;
            for (unsigned i = 0; newIntelTable[i].brand != INTEL_TABLE_END; ++i) {
                const IntelModelRow& r = newIntelTable[i];
                if (!brandSigSpeed(r)) continue;
                const size_t len = strippedLength(r.model);
                if (first < 0) {
                    first = static_cast<int>(i);
                    firstLen = len;
                    INTEL_DEBUG("IntelLookupNewTable() ITERATION 2A trying stripped model='%.*s'\n",
                                static_cast<int>(len), r.model);
                } else if (len != firstLen ||
                           std::strncmp(r.model, newIntelTable[first].model, len) != 0) {
                    same = false;
                    continue;
                }
                ++agreeing;
            }
            INTEL_DEBUG("IntelLookupNewTable() ITERATION 2A hits=%d\n", agreeing);
            if (firstLen > 0 && same) selected = first;
        }
        if (selected < 0) {
            int n = countHits(
                [&](const IntelModelRow& r) {
                    return signatureMatches(r, sig) && speedMatches(r, speed) &&
                           IntelCheckModelNumber(brand, r.model);
                },
                last);
            INTEL_DEBUG("IntelLookupNewTable() ITERATION 3 hits=%d\n", n);
            if (n == 1) selected = last;
        }
    }

    if (selected >= 0) {
        const IntelModelRow& row = newIntelTable[selected];
        INTEL_DEBUG("IntelLookupNewTable() FOUND PROC at %d, %s, %s\n", selected, row.family,
                    row.model);
        proc.familyName = row.family;
        proc.modelName = row.model;
        if (row.cores != -1) {
            proc.coresPerPackage = row.cores;
            proc.outCoresPerPackage = row.cores;
        }
        int perCore = proc.logicalPerCore;
        if (proc.logicalPerCoreKnown) {
            perCore = proc.logicalPerCoreKnownCount;
            if (proc.outCoresPerPackage >= 1)
                proc.outLogicalPerPackage = clampedProduct(perCore, proc.outCoresPerPackage);
        } else if (row.threads >= 1 && row.cores >= 1) {
            perCore = row.threads / row.cores;
        }
        if (proc.outCoresPerPackage >= 1 && proc.outCoresPerPackage >= proc.outLogicalPerPackage &&
            perCore > 0)
            proc.outLogicalPerPackage = clampedProduct(proc.outCoresPerPackage, perCore);
    }
    INTEL_DEBUG("IntelLookupNewTable() FINISHED with result %d\n", selected >= 0 ? 1 : 0);
    return selected >= 0;
}
