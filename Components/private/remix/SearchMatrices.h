#pragma once

#include <cstddef>
#include <map>
#include <vector>

namespace zuc::components {

/// Cost of playing source beat j right after source beat i; beats x beats, zero at the start.
class TransitionMatrix {
public:
    explicit TransitionMatrix(std::size_t beats) : beats_(beats), costs_(beats * beats, 0.0) {}

    std::size_t GetBeatCount() const { return beats_; }
    double* Row(std::size_t i) { return costs_.data() + i * beats_; }
    const double* Row(std::size_t i) const { return costs_.data() + i * beats_; }

private:
    std::size_t beats_;
    std::vector<double> costs_;
};

/// Cost of playing source beat i at output position t; beats x positions, zero at the start. Costs are
/// either the same at every position or belong to few positions, and are kept like that.
class PlacementMatrix {
public:
    PlacementMatrix(std::size_t beats, std::size_t positions)
        : positions_(positions), rowCosts_(beats, 0.0) {}

    std::size_t GetBeatCount() const { return rowCosts_.size(); }
    std::size_t GetPositionCount() const { return positions_; }

    void AddToRow(std::size_t i, double cost) { rowCosts_[i] += cost; }
    /// The part of beat i's cost that is the same at every position.
    double GetRowCost(std::size_t i) const { return rowCosts_[i]; }
    void Add(std::size_t i, std::size_t t, double cost) {
        auto& column = columnCosts_[t];
        column.resize(rowCosts_.size(), 0.0);
        column[i] += cost;
    }

    /// Costs of all beats at one position.
    std::vector<double> GetColumn(std::size_t t) const {
        std::vector<double> column = rowCosts_;
        if (const auto found = columnCosts_.find(t); found != columnCosts_.end())
            for (std::size_t i = 0; i < column.size(); ++i) column[i] += found->second[i];
        return column;
    }

private:
    std::size_t positions_;
    std::vector<double> rowCosts_;
    std::map<std::size_t, std::vector<double>> columnCosts_;
};

}  // namespace zuc::components
