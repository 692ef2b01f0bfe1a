#include "PsiEdit.h"

#include <gtest/gtest.h>

#include "base/InputError.h"
#include "chassis/StreamWriter.h"

namespace {

using namespace tsscramble;
using namespace testing_streams;
using chassis::Section;

const Bytes language = {0x0A, 0x04, 'd', 'e', 'u', 0x00};
const Bytes registration = {0x05, 0x04, 'T', 'E', 'S', 'T'};

ProgramMap sample() {
  return {101, 0x100, 0x1001, {{0x02, 0x1001, {}}, {0x03, 0x1002, language}}, registration, 5};
}

Bytes joined(const Bytes &first, const Bytes &second) {
  Bytes bytes = first;
  append(bytes, second);
  return bytes;
}

TEST(PsiEdit, ProgramLevelDescriptorGoesBehindTheOthers) {
  ProgramMap expected = sample();
  expected.descriptors = joined(registration, testing_streams::caDescriptor(0x0500, 0x1501));
  const PmtEdit edit{tsscramble::caDescriptor(0x0500, 0x1501), {}, false};
  EXPECT_EQ(editPmt(pmtSection(sample()), edit), pmtSection(expected));
}

TEST(PsiEdit, StreamLevelDescriptorsGoToTheirStreams) {
  ProgramMap expected = sample();
  expected.streams[0].descriptors = testing_streams::caDescriptor(0x0500, 0x1501);
  expected.streams[1].descriptors = joined(language, testing_streams::caDescriptor(0x0500, 0x1FFE));
  PmtEdit edit;
  edit.streams[0x1001] = tsscramble::caDescriptor(0x0500, 0x1501);
  edit.streams[0x1002] = tsscramble::caDescriptor(0x0500, 0x1FFE);
  edit.streams[0x1003] = tsscramble::caDescriptor(0x0500, 0x0777);
  EXPECT_EQ(editPmt(pmtSection(sample()), edit), pmtSection(expected));
}

TEST(PsiEdit, NextVersionOfAPmtWraps) {
  PmtEdit edit{tsscramble::caDescriptor(0x0500, 0x1501), {}, true};
  for (const unsigned version : {5U, 31U}) {
    ProgramMap old = sample();
    ProgramMap expected = sample();
    old.version = version;
    expected.version = (version + 1) % 32;
    expected.descriptors = joined(registration, testing_streams::caDescriptor(0x0500, 0x1501));
    EXPECT_EQ(editPmt(pmtSection(old), edit), pmtSection(expected));
  }
}

TEST(PsiEdit, LengthsThatDoNotFitLeaveThePmtAlone) {
  const PmtEdit edit{tsscramble::caDescriptor(0x0500, 0x1501), {}, false};
  Bytes body = {0xF0, 0x01, 0xF0, 0x00, 0x02, 0xF0, 0x01, 0xF0, 0x00};
  ASSERT_NE(editPmt(section(0x02, 101, 0, body), edit), section(0x02, 101, 0, body));
  for (std::size_t size = 0; size < body.size(); ++size) {
    const Section cut =
        section(0x02, 101, 0, {body.begin(), body.begin() + static_cast<std::ptrdiff_t>(size)});
    if (size != 4) {
      EXPECT_EQ(editPmt(cut, edit), cut) << size;
    }
  }
  for (const std::size_t lengthField : {3u, 8u}) {
    Bytes tooLong = body;
    tooLong[lengthField] = 200;
    EXPECT_EQ(editPmt(section(0x02, 101, 0, tooLong), edit), section(0x02, 101, 0, tooLong));
  }
}

ProgramMap withSectionSize(std::size_t size) {
  ProgramMap program{101, 0x100, 0x1001, {}, {}, 0};
  const std::size_t empty = pmtSection(program).size();
  program.descriptors = Bytes(size - empty, 0x00);
  return program;
}

TEST(PsiEdit, PmtGrowsUpTo1024Bytes) {
  const PmtEdit edit{tsscramble::caDescriptor(0x0500, 0x1501), {}, false};
  EXPECT_EQ(editPmt(pmtSection(withSectionSize(1018)), edit).size(), 1024u);
  try {
    editPmt(pmtSection(withSectionSize(1019)), edit);
    FAIL();
  } catch (const chassis::InputError &error) {
    EXPECT_STREQ(error.what(),
                 "the PMT of program 101 has no room for CA descriptors: its section would have "
                 "1025 bytes, 1024 are allowed");
  }
}

TEST(PsiEdit, CatKeepsWhatItHas) {
  const Bytes other = testing_streams::caDescriptor(0x0B00, 0x0222, {1, 2, 3});
  const Bytes added = tsscramble::caDescriptor(0x0500, 0x1500);
  EXPECT_EQ(editCat(catSection(other, 3), added), catSection(joined(other, added), 3));
  EXPECT_EQ(newCat(added), catSection(added, 0));
}

TEST(PsiEdit, PatTellsItsPids) {
  const Section pat = patSection({{0, 0x0010, 0, {}, {}, 0}, sample()});
  EXPECT_EQ(patPids(pat), (std::vector<std::uint16_t>{0x0010, 0x0100}));
  EXPECT_TRUE(patPids(patSection({})).empty());
}

}  // namespace
