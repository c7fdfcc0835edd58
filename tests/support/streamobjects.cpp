#include "streamobjects.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>

#include <gtest/gtest.h>

namespace streamtest {

NBX_STORED_CLASS_IMPL(Everything, SharedObj)
NBX_STORED_CLASS_IMPL(Link, SharedObj)
NBX_STORED_CLASS_IMPL(List, SharedObj)
NBX_STORED_CLASS_IMPL(Scripted, SharedObj)
NBX_CLASS_IMPL(Unstorable, SharedObj)

Scripted::Script Scripted::script;

std::set<Tracked *> & Tracked::live() {
    static std::set<Tracked *> objects;
    return objects;
}

void Tracked::releaseAll() {
    const std::vector<Tracked *> all(live().begin(), live().end());
    std::vector<SO<SharedObj>> held;
    for (Tracked * tracked : all)
        held.push_back(tracked->object());
    for (Tracked * tracked : all)
        tracked->release();
}

SO<SharedObj> readBytes(const Bytes & bytes) {
    const std::unique_ptr<std::uint8_t[]> block(new std::uint8_t[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), block.get());
    return ObjectStreamReader(block.get(), bytes.size()).read();
}

void transfer(Scripted::Script writing, Scripted::Script reading) {
    const SO<Scripted> object(new Scripted);
    Scripted::script = std::move(writing);
    const Bytes bytes = ObjectStreamWriter::write(*object);
    Scripted::script = std::move(reading);
    EXPECT_TRUE(readBytes(bytes));
    Scripted::script = nullptr;
}

SO<Everything> everything() {
    const SO<Everything> e(new Everything);
    e->setObjectName(L"h\u00f6he \U0001F5FB");
    e->flag = true;
    e->integer = std::numeric_limits<int>::min();
    e->number = 0xFFFFFFFF;
    e->shortNumber = 0xFFFF;
    e->longNumber = 0xFFFFFFFFFFFFFFFF;
    e->single = 0.1F;
    e->twice = -1.0 / 3.0;
    e->text = L"\u20ac\nline";
    e->vector = {1.5, -2.5, 1e300};
    e->box = Bounds({1, 2, 3}, {4, 5, 6});
    e->matrix = Matrix4x4Base<double>::translation({7, 8, 9});
    e->child = new Everything;
    std::memcpy(e->raw, "\0\1\2\3\4", 5);
    return e;
}

} // namespace streamtest
