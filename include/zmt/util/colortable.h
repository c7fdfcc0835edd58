#pragma once

#include <string>

#include <nbx/container/map/dictionary.h>
#include <nbx/container/sequence/iterator.h>
#include <nbx/math/color.h>
#include <nbx/object/so.h>

namespace ZMT::UTIL {

/// A palette: colours by name, which can be stored by itself or as a part of other objects.
///
/// Names are in the order in which they came; where one is removed, the last one takes its place. Like other
/// objects a table belongs to one thread at a time.
class ColorTable : public NBX::SharedObj {
    NBX_STORED_CLASS(ColorTable, NBX::SharedObj)
public:
    ColorTable();
    /// What `loadTable` makes of a file; empty where that is nothing.
    explicit ColorTable(const std::wstring & file);
    /// Has entries of its own.
    ColorTable(const ColorTable & other);
    ColorTable & operator=(const ColorTable &) = delete;

    /// Adds an entry. A name that is there gets the new colour.
    void newEntry(const std::wstring & name, NBX::Color color);
    /// Gives an entry another colour. A name that is not there is added.
    void setEntry(const std::wstring & name, NBX::Color color);
    bool entryExists(const std::wstring & name) const { return table_->contains(name); }
    /// Gives the colour of `oldName` to `newName`, also where that has one, and removes the old name. A name
    /// that is not there is reported, and nothing changes.
    void renameEntry(const std::wstring & oldName, const std::wstring & newName);
    /// Nothing for a name that is not there.
    void deleteEntry(const std::wstring & name);
    /// The number of entries.
    unsigned entries() const { return table_->size(); }
    void clear();
    /// A new sequence of the names, which keeps them alive and shows changes.
    NBX::SO<NBX::Iterator<std::wstring>> getEntries() const { return table_->keys(); }
    /// Opaque black for a name that is not there, which is reported.
    NBX::Color getColor(const std::wstring & name) const { return table_->get(name); }

    /// Writes an object file; true. Throws `IOException` where that fails, and leaves what was there.
    bool saveTable(const std::wstring & file) const;
    /// Adds the entries of an object file, behind those that are there or, with `clearFirst`, in their place.
    /// A name that is there gets the loaded colour. False where there is no such file or it holds no table,
    /// which is not reported; nothing is added then.
    bool loadTable(const std::wstring & file, bool clearFirst);

    void serialize(NBX::SerializationManager & m) override;

private:
    using Table = NBX::Dictionary<std::wstring, NBX::Color>;

    void add(const ColorTable & other);

    NBX::SO<Table> table_; ///< never null
};

} // namespace ZMT::UTIL
