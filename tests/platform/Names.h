// Names of parametrised cases.
#ifndef TESTS_PLATFORM_NAMES_H
#define TESTS_PLATFORM_NAMES_H

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>

inline std::string hexName(uint32_t value) {
  std::ostringstream name;
  name << "0x" << std::hex << value;
  return name.str();
}

// The parameter is a number best read in hexadecimal.
struct HexName {
  template <typename P>
  std::string operator()(const testing::TestParamInfo<P> &each) const {
    return hexName(static_cast<uint32_t>(each.param));
  }
};

// One member of the parameter, in hexadecimal: HexOf<&Case::value>().
template <auto MEMBER>
struct HexOf {
  template <typename P>
  std::string operator()(const testing::TestParamInfo<P> &each) const {
    return hexName(static_cast<uint32_t>(each.param.*MEMBER));
  }
};

// The parameter has a member `name`.
struct ItsName {
  template <typename P>
  std::string operator()(const testing::TestParamInfo<P> &each) const {
    return each.param.name;
  }
};

#endif
