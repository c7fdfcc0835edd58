#include <nbx/object/classinfo.h>

#include <cstdlib>
#include <memory>

#include <cxxabi.h>

namespace NBX {

namespace {

std::string demangled(const char * name) {
    int status = 0;
    const std::unique_ptr<char, void (*)(void *)> text(abi::__cxa_demangle(name, nullptr, nullptr, &status),
                                                       std::free);
    return status == 0 && text ? text.get() : name;
}

} // namespace

ClassInfo::ClassInfo(const std::type_info & type, const ClassInfo * parent)
    : name_(demangled(type.name())), parent_(parent) {}

bool ClassInfo::isA(const ID & name) const {
    for (const ClassInfo * info = this; info; info = info->parent_)
        if (info->name_ == name) return true;
    return false;
}

} // namespace NBX
