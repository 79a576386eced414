// The JSON documents the benchmarks measure, generated the same way each
// time; the serializer's tests check saving them byte for byte, so what is
// measured is also what is tested.
#pragma once

#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace TarselTest {

// About 20 KB of settings groups: records of ten members, a ratio, a nested
// record and a small array each.
inline std::string SettingsDocument() {
    std::mt19937 random(1);
    std::ostringstream out;
    out << "{";
    for (int g = 0; out.tellp() < 20000; ++g) {
        out << (g ? "," : "") << "\"group" << g << "\":{"
            << "\"enabled\":" << (random() % 2 ? "true" : "false") << ",\"frameRate\":29.97"
            << ",\"frameRateRatio\":\"30000/1001\",\"width\":" << 640 + random() % 3200
            << ",\"height\":" << 480 + random() % 1700 << ",\"codec\":\"h264\",\"label\":\"Preset number " << g
            << "\",\"gain\":" << (random() % 1000) / 100.0 << ",\"channels\":[0,1,2,3]"
            << ",\"advanced\":{\"threads\":" << random() % 16 << ",\"quality\":\"high\",\"latency\":0.25}}";
    }
    out << "}";
    return out.str();
}

// An array of items media records of 13 members, with a nested record and a
// small array each.
inline std::string MediaLibraryDocument(int items) {
    std::mt19937 random(2);
    std::ostringstream out;
    out << "[";
    for (int i = 0; i < items; ++i) {
        out << (i ? "," : "") << "{\"id\":" << 100000 + i << ",\"title\":\"Holiday clip number " << i << "\""
            << ",\"path\":\"/media/library/" << 2000 + i % 25 << "/clip_" << i << ".mov\""
            << ",\"duration\":" << (random() % 10000000) / 1000.0 << ",\"frameRate\":29.97"
            << ",\"frameRateRatio\":\"30000/1001\",\"width\":1920,\"height\":1080"
            << ",\"codec\":{\"name\":\"h264\",\"profile\":\"high\",\"level\":" << 30 + random() % 22 << "}"
            << ",\"tags\":[" << random() % 50 << "," << random() % 50 << "," << random() % 50 << "]"
            << ",\"rating\":" << random() % 6 << ",\"favorite\":" << (random() % 4 ? "false" : "true") << "}";
    }
    out << "]";
    return out.str();
}

// An array of items records of three members: an integer, a double, a string.
inline std::string FlatArrayDocument(int items) {
    std::string text = "[";
    for (int i = 0; i < items; ++i) {
        text += (i ? ",{\"id\":" : "{\"id\":") + std::to_string(i) + ",\"value\":" + std::to_string(i % 1000) +
                ".5,\"name\":\"item" + std::to_string(i) + "\"}";
    }
    return text + "]";
}

// The benchmarks' documents by name, each made by a call of its maker.
inline const std::vector<std::pair<std::string, std::string (*)()>>& JsonDocumentMakers() {
    static const std::vector<std::pair<std::string, std::string (*)()>> makers = {
        {"settings_20KB", SettingsDocument},
        {"media_8MB", [] { return MediaLibraryDocument(40000); }},
        {"flat_10k", [] { return FlatArrayDocument(10000); }},
        {"flat_100k", [] { return FlatArrayDocument(100000); }},
        {"flat_1M", [] { return FlatArrayDocument(1000000); }},
    };
    return makers;
}

}  // namespace TarselTest
