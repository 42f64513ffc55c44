// The sanitiser over a report naming many hosts: learning 16,000 names and rewriting
// a text that holds each of them and as many addresses, in one pass whatever the
// number of names.
#include "cli/Sanitize.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace {

std::vector<std::string> hostNames(int n) {
    std::vector<std::string> names;
    for (int i = 0; i < n; ++i)
        names.push_back("host" + std::to_string(i) + ".site" + std::to_string(i % 97) +
                        ".example.com");
    return names;
}

std::string reportOf(const std::vector<std::string>& names) {
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i)
        text += "Hostname:s=" + names[i] + " inet 10." + std::to_string(i / 256 % 256) + "." +
                std::to_string(i % 256) +
                ".7 ether 00:1e:c2:0c:" + std::to_string(10 + i / 90 % 90) + ":" +
                std::to_string(10 + i % 90) + "\n";
    return text;
}

void BM_SanitizeHosts(benchmark::State& state) {
    const std::vector<std::string> names = hostNames(static_cast<int>(state.range(0)));
    const std::string text = reportOf(names);
    for (auto _ : state) {
        Sanitizer s("bench");
        for (const std::string& n : names)
            s.learn(Sanitizer::HOST, n);
        benchmark::DoNotOptimize(s.rewrite(text));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_SanitizeHosts)->Arg(1000)->Arg(16000)->Unit(benchmark::kMillisecond);

// The rewrite alone, over a text of no noted value, with every name noted.
void BM_RewriteOnly(benchmark::State& state) {
    const std::vector<std::string> names = hostNames(16000);
    Sanitizer s("bench");
    for (const std::string& n : names)
        s.learn(Sanitizer::HOST, n);
    const std::string text = reportOf(hostNames(static_cast<int>(state.range(0))));
    for (auto _ : state)
        benchmark::DoNotOptimize(s.rewrite(text));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_RewriteOnly)->Arg(16000)->Unit(benchmark::kMillisecond);

// Learning from and rewriting a text of tiny lines ("x\n", and dump lines that each
// name a serial): the time per byte stays the same from 1 MiB to 4 MiB.
void BM_TinyLines(benchmark::State& state) {
    const std::size_t size = static_cast<std::size_t>(state.range(0)) << 20;
    std::string text;
    text.reserve(size);
    while (text.size() < size)
        text += "x\n";
    for (auto _ : state) {
        Sanitizer s("bench");
        s.learnText(text);
        benchmark::DoNotOptimize(s.rewrite(text));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_TinyLines)->Arg(1)->Arg(4)->Unit(benchmark::kMillisecond);

void BM_TinyDumpLines(benchmark::State& state) {
    const std::size_t size = static_cast<std::size_t>(state.range(0)) << 20;
    std::string text;
    text.reserve(size + 64);
    for (int i = 0; text.size() < size; ++i)
        text += "x:d=1\nkey:s=v" + std::to_string(i % 100) + "\n";
    for (auto _ : state) {
        Sanitizer s("bench");
        s.learnText(text);
        benchmark::DoNotOptimize(s.rewrite(text));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_TinyDumpLines)->Arg(1)->Arg(4)->Unit(benchmark::kMillisecond);

} // namespace
