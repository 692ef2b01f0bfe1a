// How near a word is to what was meant.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace chassis {

// Characters to insert, delete or change, whatever their case, to make one of the other.
std::size_t editDistance(const std::string &a, const std::string &b);

// The candidate of the smallest distance, the first of several; empty when there is none.
std::string nearest(const std::string &name, const std::vector<std::string> &candidates);

}  // namespace chassis
