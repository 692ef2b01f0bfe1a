#include "ts/ServiceNames.h"

#include <gtest/gtest.h>

#include <random>

#include "chassis/StreamWriter.h"
#include "ts/Psi.h"

using namespace testing_streams;
using chassis::PsiReader;
using chassis::ServiceNames;

namespace {

Bytes bytesOf(const std::string &text) {
  return {text.begin(), text.end()};
}

Service service(unsigned id, const std::string &name, const std::string &provider = "") {
  return {id, bytesOf(name), bytesOf(provider)};
}

// A PID whose writer goes on, so that its continuity counters do.
class Reading {
 public:
  Reading &table(const Bytes &section) {
    stream_.table(ServiceNames::pid, section);
    for (; pushed_ < stream_.packets(); ++pushed_) {
      names.push(stream_.packet(pushed_));
    }
    return *this;
  }

  ServiceNames names;

 private:
  StreamWriter stream_;
  std::size_t pushed_ = 0;
};

std::string nameOf(const Reading &reading, std::uint16_t program) {
  return reading.names.of(program).name;
}

}  // namespace

TEST(ServiceNames, KnowsNoneAtFirst) {
  const ServiceNames names;
  EXPECT_EQ(names.of(101).name, "");
  EXPECT_EQ(names.changes(), 0U);
}

TEST(ServiceNames, ReadsNameAndProvider) {
  Reading reading;
  reading.table(sdtSection({service(101, "One", "Somebody"), {102, {0x05, 0xDD}, {}}}));
  EXPECT_EQ(nameOf(reading, 101), "One");
  EXPECT_EQ(reading.names.of(101).provider, "Somebody");
  EXPECT_EQ(nameOf(reading, 102), "İ");
  EXPECT_EQ(reading.names.of(102).provider, "");
  EXPECT_EQ(nameOf(reading, 103), "");
  EXPECT_EQ(reading.names.changes(), 1U);
}

TEST(ServiceNames, FindsTheNameAmongOtherDescriptors) {
  Bytes descriptors{0x5F, 2, 1, 2};
  append(descriptors, serviceDescriptor(service(101, "One")));
  append(descriptors, {0x73, 0});
  Reading reading;
  reading.table(sdtSectionOf(sdtEntry(101, descriptors)));
  EXPECT_EQ(nameOf(reading, 101), "One");
}

TEST(ServiceNames, ARepetitionIsNoChange) {
  Reading reading;
  const Bytes table = sdtSection({service(101, "One")});
  reading.table(table).table(table);
  EXPECT_EQ(reading.names.changes(), 1U);
  // another version of the same names
  reading.table(sdtSection({service(101, "One")}, 1));
  EXPECT_EQ(reading.names.changes(), 1U);
}

TEST(ServiceNames, FollowsTheNextVersion) {
  Reading reading;
  reading.table(sdtSection({service(101, "One"), service(102, "Two")}));
  reading.table(sdtSection({service(101, "Uno")}, 1));
  EXPECT_EQ(nameOf(reading, 101), "Uno");
  EXPECT_EQ(nameOf(reading, 102), "");
  EXPECT_EQ(reading.names.changes(), 2U);
}

TEST(ServiceNames, ATableMayHaveManySections) {
  Reading reading;
  reading.table(sdtSection({service(102, "Two")}, 0, 1, 1));
  EXPECT_EQ(nameOf(reading, 102), "Two");
  reading.table(sdtSection({service(101, "One")}, 0, 0, 1));
  EXPECT_EQ(nameOf(reading, 101), "One");
  EXPECT_EQ(nameOf(reading, 102), "Two");
  // the next version has one section alone
  const auto changes = reading.names.changes();
  reading.table(sdtSection({service(101, "One")}, 1));
  EXPECT_EQ(nameOf(reading, 101), "One");
  EXPECT_EQ(nameOf(reading, 102), "");
  EXPECT_EQ(reading.names.changes(), changes + 1);
}

TEST(ServiceNames, OnlyTheTableOfThisStreamThatIsCurrentCounts) {
  const Bytes entry = sdtEntry(101, serviceDescriptor(service(101, "other")));
  Bytes next = sdtSectionOf(entry, 1);
  next[5] &= 0xFE;
  Reading reading;
  reading.table(sdtSection({service(101, "One")}))
      .table(sdtSectionOf(entry, 0, 0, 0, 0x46))  // another stream's
      .table(sdtSectionOf(entry, 0, 0, 0, 0x4A))  // a bouquet
      .table(sealed(next))
      .table(sdtSectionOf(entry, 1, 2, 1));  // behind the last section
  EXPECT_EQ(nameOf(reading, 101), "One");
  EXPECT_EQ(reading.names.changes(), 1U);
}

TEST(ServiceNames, ADamagedOrTooLongSectionIsDropped) {
  Reading reading;
  reading.table(sdtSection({service(101, "One")}));
  Bytes damaged = sdtSection({service(101, "Uno")}, 1);
  damaged[20] ^= 1;
  Bytes longOne;
  for (unsigned id = 0; id < 5; ++id) {
    append(longOne,
           sdtEntry(101 + id, serviceDescriptor(service(101 + id, std::string(200, 'x')))));
  }
  reading.table(damaged).table(sdtSectionOf(longOne, 2));
  EXPECT_EQ(nameOf(reading, 101), "One");
  EXPECT_EQ(reading.names.changes(), 1U);
}

// The CRC is right, but lengths inside lead out of what they are in.
TEST(ServiceNames, DropsSectionsWhoseInnerLengthsDoNotFit) {
  Bytes tooFar = sdtEntry(101, serviceDescriptor(service(101, "Uno")));
  tooFar[4] = static_cast<std::uint8_t>(tooFar[4] + 1);
  Bytes rest = sdtEntry(101, serviceDescriptor(service(101, "Uno")));
  append(rest, {0, 102, 0xFC, 0x80});
  const Bytes openDescriptor = sdtEntry(101, {0x48, 9, 1, 0, 3, 'U', 'n', 'o'});
  const Bytes loneTag = sdtEntry(101, {0x48});
  Reading reading;
  reading.table(sdtSection({service(101, "One")}));
  unsigned version = 1;
  for (const Bytes &entries : {tooFar, rest, openDescriptor, loneTag}) {
    reading.table(sdtSectionOf(entries, version++));
    EXPECT_EQ(nameOf(reading, 101), "One") << version;
  }
  // nor is a table that ends within its own head
  reading.table(section(0x42, 0x1234, 9, {})).table(section(0x42, 0x1234, 10, {0, 1}));
  EXPECT_EQ(nameOf(reading, 101), "One");
}

TEST(ServiceNames, ADescriptorWhoseNamesDoNotFitNamesNothing) {
  for (const Bytes &descriptor :
       {Bytes{0x48, 0}, Bytes{0x48, 1, 1}, Bytes{0x48, 2, 1, 1}, Bytes{0x48, 3, 1, 1, 'p'},
        Bytes{0x48, 4, 1, 1, 'p', 1}, Bytes{0x48, 5, 1, 0, 3, 'O', 'n'}}) {
    Reading reading;
    reading.table(sdtSectionOf(sdtEntry(101, descriptor)));
    EXPECT_EQ(nameOf(reading, 101), "") << testing::PrintToString(descriptor);
    EXPECT_EQ(reading.names.of(101).provider, "") << testing::PrintToString(descriptor);
  }
}

TEST(ServiceNames, SurvivesNoise) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  Reading reading;
  for (int i = 0; i < 5000; ++i) {
    Bytes noisy = sdtSection({service(101, "One", "Somebody"), service(102, "Two")}, i % 32);
    for (unsigned flips = random() % 4; flips > 0; --flips) {
      noisy[6 + random() % (noisy.size() - 10)] ^= static_cast<std::uint8_t>(1U << random() % 8);
    }
    reading.table(sealed(noisy));
  }
  reading.table(sdtSection({service(101, "One")}));
  EXPECT_EQ(nameOf(reading, 101), "One");
}

TEST(ServiceNames, ANameIsNoChangeOfThePrograms) {
  const ProgramMap map{101, 0x1000, 0x100, {{0x1B, 0x100, {}}}, {}, 0};
  StreamWriter stream;
  stream.psi({map}).table(ServiceNames::pid, sdtSection({service(101, "One")}));
  PsiReader reader;
  for (std::size_t i = 0; i < stream.packets(); ++i) {
    reader.push(stream.packet(i));
  }
  EXPECT_EQ(reader.services().of(101).name, "One");
  EXPECT_EQ(reader.services().changes(), 1U);
  EXPECT_EQ(reader.changes(), 2U);  // the PAT and the PMT
}

TEST(ServiceNames, APmtMayShareThePid) {
  const ProgramMap map{101, ServiceNames::pid, 0x100, {{0x1B, 0x100, {}}}, {}, 0};
  StreamWriter stream;
  stream.psi({map}).table(ServiceNames::pid, sdtSection({service(101, "One")}));
  PsiReader reader;
  for (std::size_t i = 0; i < stream.packets(); ++i) {
    reader.push(stream.packet(i));
  }
  EXPECT_TRUE(reader.complete());
  EXPECT_EQ(reader.services().of(101).name, "One");
}
