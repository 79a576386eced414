// `tarsel demo`: a guided tour of the library on a small settings tree.
#include "Command.h"

#include <Core/Interfaces/Tarsel.h>

#include <boost/exception/diagnostic_information.hpp>

#include <iomanip>
#include <iostream>

namespace TarselTool {

using namespace Tarsel;
using namespace Tarsel::Core;

namespace {

Property BuildSettings() {
    Property settings("settings");
    Property& video = settings.SetChild("video");
    video.SetChildT<long long>("width", 1920);
    video.SetChildT<long long>("height", 1080);
    video.SetChildT<double>("fps", 29.97);
    video.SetChild(PropertySerializer::kRatioKey, Property("", Ratio(30000, 1001)));
    video.SetChild("codec", "h264");
    settings.SetChild("audio").SetChildT<long long>("channels", 2);
    settings.SetChild("hardwareDecoding", Property("", true));
    return settings;
}

void ShowValues(const Property& settings) {
    const Property& video = settings["video"];
    std::cout << "== Values read back\n"
              << "video/width          " << video["width"].GetInt64() << "\n"
              << "video/fps            " << video["fps"].GetDouble() << "\n"
              << "video/" << PropertySerializer::kRatioKey << " "
              << StringFromRatio(video[PropertySerializer::kRatioKey].GetRatio()) << "\n"
              << "video/codec          " << video["codec"].GetString() << "\n"
              << "hardwareDecoding     " << settings["hardwareDecoding"].GetBool() << "\n\n";
}

void ShowPaths(const Property& settings) {
    std::cout << "== Paths\n"
              << "ChildByPath(\"video/codec\")            " << settings.ChildByPath("video/codec").GetString() << "\n"
              << "ChildExistsByPath(\"/audio//channels/\") " << settings.ChildExistsByPath("/audio//channels/") << "\n"
              << "ChildExistsByPath(\"audio/bitrate\")     " << settings.ChildExistsByPath("audio/bitrate") << "\n\n";
}

void ShowComparison(const Property& settings) {
    // The same settings written in another order: containers compare by name.
    Property reordered("settings");
    reordered.SetChild("hardwareDecoding", Property("", true));
    reordered.SetChild("audio").SetChildT<long long>("channels", 2);
    Property& video = reordered.SetChild("video");
    video.SetChild("codec", "h264");
    video.SetChild(PropertySerializer::kRatioKey, Property("", Ratio(60000, 2002)));
    video.SetChildT<double>("fps", 29.970001);  // within the 1e-05 tolerance
    video.SetChildT<long long>("height", 1080);
    video.SetChildT<long long>("width", 1920);
    std::cout << "== Comparison\n"
              << "settings == the same children in reverse order: " << (settings == reordered) << "\n";
    video.SetChildT<long long>("width", 1280);
    std::cout << "... and with width 1280:                         " << (settings == reordered) << "\n\n";
}

void ShowWrongType(const Property& settings) {
    std::cout << "== Asking the container 'video' for a bool\n";
    try {
        settings["video"].GetBool();
    } catch (const WrongTypeIsRequested& e) {
        std::cout << "caught Tarsel::Core::WrongTypeIsRequested\n" << boost::diagnostic_information(e) << "\n";
    }
}

}  // namespace

int RunDemo(const std::vector<std::string>& args) {
    ParseOrExit(args, "tarsel demo", po::options_description("options"));
    const Property settings = BuildSettings();
    std::cout << std::boolalpha << "== A settings tree\n";
    PrintPropertyValue(settings, 0, std::cout, true, true);
    ShowValues(settings);
    ShowPaths(settings);
    ShowComparison(settings);
    ShowWrongType(settings);
    return kSuccess;
}

}  // namespace TarselTool
