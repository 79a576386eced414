// A parent project's program: Tarsel Core built with add_subdirectory must
// record its throw sites by their place in Tarsel's own tree, wherever that
// tree sits in the parent's.
#include <Core/Interfaces/Property.h>

#include <boost/exception/get_error_info.hpp>

#include <cstring>
#include <iostream>

int main() {
    using namespace Tarsel::Core;
    try {
        Property("settings", true).GetString();
    } catch (const WrongTypeIsRequested& e) {
        const char* const* file = boost::get_error_info<boost::throw_file>(e);
        if (file != nullptr && std::strcmp(*file, "Core/Interfaces/Property.cpp") == 0) {
            std::cout << "parent-app: the throw site is " << *file << "\n";
            return 0;
        }
        std::cerr << "parent-app: the throw site is " << (file != nullptr ? *file : "not recorded")
                  << ", not Core/Interfaces/Property.cpp\n";
        return 1;
    }
    std::cerr << "parent-app: GetString on a bool did not throw\n";
    return 1;
}
