// SPDX-License-Identifier: MIT
// SquareMatrix holds `order` rows of `order` doubles.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <stdexcept>
#include <vector>

namespace quorel {

class SquareMatrix {
public:
    // One list a row, each as long as there are rows. An empty list makes an empty matrix.
    SquareMatrix(std::initializer_list<std::initializer_list<double>> rows);

    std::uint64_t order() const noexcept { return order_; }

    // Rows and columns count from 0. The row is checked; a column within the matrix is the caller's affair.
    double& operator()(std::uint64_t row, std::uint64_t column) { return entries[address(row, column)]; }
    double operator()(std::uint64_t row, std::uint64_t column) const { return entries[address(row, column)]; }

private:
    std::uint64_t address(std::uint64_t row, std::uint64_t column) const
    {
        if (row >= order_)
            throw std::invalid_argument("SquareMatrix: index out of bounds");
        return order_ * row + column;
    }

    std::uint64_t order_;        // rows
    std::vector<double> entries; // row by row, order * order
};

// ---------------------------------------------------------------------------------------------------------------------

inline SquareMatrix::SquareMatrix(std::initializer_list<std::initializer_list<double>> rows) : order_(rows.size())
{
    entries.reserve(order_ * order_);
    for (const auto& row : rows) {
        if (row.size() != order_)
            throw std::invalid_argument("SquareMatrix: initializer list must be square");
        entries.insert(entries.end(), row.begin(), row.end());
    }
}

} // namespace quorel
