#include "Platform/SymbolicLinks.h"

#include <cstdlib>
#include <memory>

namespace kelvane {
namespace {

struct FreeText {
    void operator()(char* text) const { std::free(text); } // NOLINT(cppcoreguidelines-no-malloc)
};

} // namespace

std::string withoutLinks(const std::string& path) {
    const std::unique_ptr<char, FreeText> resolved(::realpath(path.c_str(), nullptr));
    return resolved ? std::string(resolved.get()) : path;
}

} // namespace kelvane
