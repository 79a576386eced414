// A client of Tarsel Core: reads a setting from a JSON settings file.
//   settings-client FILE PATH
// Built by CMakeLists.txt beside it, or through pkg-config, which cannot say
// that the headers need C++17:
//   c++ -std=c++17 main.cpp $(pkg-config --cflags --libs tarsel-core)
#include <Core/Interfaces/Tarsel.h>

#include <iostream>

int main(int argc, char** argv) {
    using namespace Tarsel::Core;
    if (argc != 3) {
        std::cerr << "usage: settings-client FILE PATH\n";
        return 2;
    }
    try {
        Property settings("settings");
        PropertySerializer::Deserialize(settings, FileDataInput::Create(argv[1]), false);
        std::cout << PropertyValueToString(settings.ChildByPath(argv[2])) << "\n";
        return 0;
    } catch (const std::exception& e) {
        // "settings.json: JSON parse error at 12:5: missing a comma or '}'
        // after an object member"
        std::cerr << argv[1] << ": " << Tarsel::ErrorMessage(e) << "\n";
    }
    return 1;
}
