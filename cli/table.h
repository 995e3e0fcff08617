// Texts in columns, measured as a terminal shows them: wide characters take two columns, combining ones none.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace table {

using Row = std::vector<std::string>;

/// The beginning of a text that fits into so many columns; no character is cut in two or parted from its marks.
std::string_view cut(std::string_view text, size_t columns);

/// The widths of a table's columns. The last text of a row is as wide as it needs, and so is one that is wider than a
/// column may become: it moves the rest of its own row only.
class Columns
{
public:
    /// Makes the columns wide enough for a row, of which the last texts may be missing.
    void fit(const Row& row);
    /// The row as a line, with its line feed.
    std::string line(const Row& row) const;

private:
    std::vector<size_t> m_widths;
};

/// Rows in columns, the first of them the headings.
std::string lines(const std::vector<Row>& rows);

} // namespace table
