// SPDX-License-Identifier: BSD-3-Clause
//
// A program without the library that loads and unloads an object which uses it. Takes the path of the
// object, and "thread" if another thread than the main one shall use the library.

#include <glib.h>

#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <iostream>
#include <string>
#include <thread>

namespace {

using Function = int (*)();

/// An object that is loaded while this one exists.
class Plugin
{
public:
    explicit Plugin(const char* path) : m_object(dlopen(path, RTLD_NOW | RTLD_LOCAL))
    {
        if (m_object == nullptr) {
            std::cerr << dlerror() << '\n';
            std::exit(1);
        }
    }
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;
    ~Plugin() { dlclose(m_object); }

    int Call(const char* name) const { return reinterpret_cast<Function>(dlsym(m_object, name))(); }

private:
    void* m_object;
};

bool IsLoaded(const char* object)
{
    void* const found = dlopen(object, RTLD_NOW | RTLD_NOLOAD);
    if (found != nullptr) {
        dlclose(found);
    }
    return found != nullptr;
}

void WaitForInput()
{
    std::string line;
    std::getline(std::cin, line);
}

void Load(const char* path)
{
    const Plugin plugin(path);
    std::cout << (plugin.Call("UseTheLibrary") > 0 ? "packages" : "no packages") << '\n';
}

void DispatchWhatIsReady()
{
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
}

} // namespace

int main(int argc, char** argv)
{
    const char* const path = argv[1];
    if (argc > 2) {
        std::thread([path] { Load(path); }).join();
    } else {
        Load(path);
    }
    std::cout << "plugin " << (IsLoaded(path) ? "loaded" : "unloaded") << '\n';
    std::cout << "library " << (IsLoaded("libemporium.so.0") ? "loaded" : "unloaded") << '\n';
    std::cout << "unloaded\n" << std::flush;
    WaitForInput();
    DispatchWhatIsReady();
    const Plugin again(path);
    std::cout << (again.Call("UseTheLibrary") > 0 ? "packages again" : "no packages") << '\n'
              << std::flush;
    WaitForInput();
    DispatchWhatIsReady();
    std::cout << again.Call("Events") << " events\n" << std::flush;
}
