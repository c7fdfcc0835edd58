#include <zmt/util/colortable.h>

#include <nbx/data/objectloader.h>
#include <nbx/data/objectsaver.h>
#include <nbx/object/serializationmanager.h>
#include <nbx/object/stringutils.h>

namespace ZMT::UTIL {

using NBX::StringUtils;

ColorTable::ColorTable() : table_(new Table) {}

ColorTable::ColorTable(const std::wstring & file) : ColorTable() {
    loadTable(file, true);
}

ColorTable::ColorTable(const ColorTable & other) : NBX::SharedObj(other), table_(new Table) {
    add(other);
}

void ColorTable::newEntry(const std::wstring & name, NBX::Color color) {
    table_->insert(name, color);
    modified();
}

void ColorTable::setEntry(const std::wstring & name, NBX::Color color) {
    newEntry(name, color);
}

void ColorTable::renameEntry(const std::wstring & oldName, const std::wstring & newName) {
    const NBX::Color color = getColor(oldName);
    if (!entryExists(oldName) || oldName == newName) return;
    table_->insert(newName, color);
    table_->remove(oldName);
    modified();
}

void ColorTable::deleteEntry(const std::wstring & name) {
    if (table_->remove(name)) modified();
}

void ColorTable::clear() {
    table_->clear();
    modified();
}

bool ColorTable::saveTable(const std::wstring & file) const {
    return NBX::ObjectSaver::write(this, StringUtils::WString2Utf8String(file));
}

bool ColorTable::loadTable(const std::wstring & file, bool clearFirst) {
    if (clearFirst) clear();
    const auto loaded = NBX::soCast<ColorTable>(
        NBX::ObjectLoader::readFile(StringUtils::WString2Utf8String(file), ClassInfoNBX()->name(), false));
    if (!loaded) return false;
    add(*loaded);
    modified();
    return true;
}

void ColorTable::add(const ColorTable & other) {
    const auto names = other.getEntries();
    for (const std::wstring & name : *names)
        table_->insert(name, other.getColor(name));
}

void ColorTable::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<NBX::SharedObj>(m, this);
    m.attribute("table", table_);
    if (m.isReading() && !table_) table_ = new Table; // the file may hold anything there
}

NBX_STORED_CLASS_IMPL(ColorTable, NBX::SharedObj)

} // namespace ZMT::UTIL
