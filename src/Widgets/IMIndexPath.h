#pragma once

#include <QHashFunctions>
#include <QMetaType>

//! A row's place in a table: section and row, both counted from 0.
struct IMIndexPath {
    int section = 0; //!< the section
    int row = -1; //!< the row in the section; -1 in an invalid path

    //! The path of `row` in `section`.
    static IMIndexPath indexPathForRow(int row, int section = 0) { return IMIndexPath {section, row}; }
    //! Whether the path names a row at all (row and section not negative).
    bool isValid() const { return row >= 0 && section >= 0; }

    friend bool operator==(const IMIndexPath &a, const IMIndexPath &b)
    {
        return a.section == b.section && a.row == b.row;
    }
    friend bool operator!=(const IMIndexPath &a, const IMIndexPath &b) { return !(a == b); }
    friend bool operator<(const IMIndexPath &a, const IMIndexPath &b)
    {
        return a.section != b.section ? a.section < b.section : a.row < b.row;
    }
    friend size_t qHash(const IMIndexPath &p, size_t seed = 0) { return qHashMulti(seed, p.section, p.row); }
};
Q_DECLARE_METATYPE(IMIndexPath)
