#include "io/Url.h"

#include <gtest/gtest.h>

#include "base/InputError.h"

namespace {

using chassis::readUrl;
using chassis::Url;
using Scheme = Url::Scheme;
using Use = Url::Use;

std::string errorOf(const std::string &text, Use use = Use::Input) {
  try {
    readUrl(text, use);
  } catch (const chassis::InputError &error) {
    return error.what();
  }
  return "";
}

void expectError(const std::string &text, const std::string &why, Use use = Use::Input) {
  EXPECT_EQ(errorOf(text, use), "'" + text + "': " + why);
}

void expectErrorBegins(const std::string &text, const std::string &why, Use use = Use::Input) {
  EXPECT_EQ(errorOf(text, use).rfind("'" + text + "': " + why, 0), 0U) << errorOf(text, use);
}

}  // namespace

TEST(Url, AnythingWithoutASchemeIsAPath) {
  for (const std::string path : {"a.ts", "/x/y", "", ".", "a:b", "udp:239.1.1.1:5", "a?ttl=3",
                                 "rtp:/x", "@1:2", "[::1]:5", "a b", "%41", "file", "--"}) {
    const Url url = readUrl(path, Use::Input);
    EXPECT_EQ(url.scheme, Scheme::File);
    EXPECT_EQ(url.path, path);
    EXPECT_EQ(url.text, path);
    EXPECT_FALSE(url.isNetwork());
  }
}

TEST(Url, ADashIsTheStandardStream) {
  EXPECT_EQ(readUrl("-", Use::Output).scheme, Scheme::StandardStream);
  EXPECT_EQ(readUrl("file:-", Use::Output).path, "-");
  EXPECT_EQ(readUrl("file:-", Use::Output).scheme, Scheme::File);
}

TEST(Url, AFileIsTakenVerbatim) {
  const std::pair<const char *, const char *> cases[] = {
      {"file:a.ts", "a.ts"},
      {"file:/x", "/x"},
      {"file:///x", "/x"},
      {"file:a://b", "a://b"},
      {"file:a?b", "a?b"},
      {"file:a?b=c", "a?b=c"},
      {"FILE:///x y", "/x y"},
      {"file:%20", "%20"},
      {"file:////x", "//x"},
      {"file:a?ttl", "a?ttl"},
      {"file:/a?ttl=3/b?", "/a?ttl=3/b?"},
  };
  for (const auto &[text, path] : cases) {
    EXPECT_EQ(readUrl(text, Use::Input).path, path) << text;
    EXPECT_EQ(readUrl(text, Use::Input).scheme, Scheme::File) << text;
  }
}

TEST(Url, AFileThatIsNoneIsRefused) {
  expectError("file:", "the path is missing; right is file:PATH");
  expectError("file://host/x",
              "the file of another machine cannot be read; right is file:PATH or file:///PATH");
  expectError("file:///x?delay=5",
              "a file has no options; 'delay' is one of udp:// and rtp://, and a file of this name "
              "is written without file:");
}

TEST(Url, Groups) {
  const Url four = readUrl("udp://@239.1.2.3:1234", Use::Input);
  EXPECT_EQ(four.scheme, Scheme::Udp);
  EXPECT_EQ(four.address, "239.1.2.3");
  EXPECT_EQ(four.port, 1234);
  EXPECT_TRUE(four.multicast);
  EXPECT_FALSE(four.v6);
  EXPECT_TRUE(four.isNetwork());
  EXPECT_EQ(four.delayMs, 100U);
  EXPECT_FALSE(four.rcvbuf || four.ttl || four.dscp);

  const Url six = readUrl("RTP://[FF15:0::1]:65535", Use::Input);
  EXPECT_EQ(six.scheme, Scheme::Rtp);
  EXPECT_EQ(six.address, "ff15::1");
  EXPECT_EQ(six.port, 65535);
  EXPECT_TRUE(six.multicast);
  EXPECT_TRUE(six.v6);
  EXPECT_TRUE(six.isNetwork());

  EXPECT_FALSE(readUrl("udp://127.0.0.1:1", Use::Output).multicast);
  EXPECT_FALSE(readUrl("udp://[::1]:1", Use::Output).multicast);
  EXPECT_FALSE(readUrl("udp://223.255.255.255:1", Use::Output).multicast);
  EXPECT_TRUE(readUrl("udp://224.0.0.0:1", Use::Output).multicast);
  EXPECT_TRUE(readUrl("udp://239.255.255.255:1", Use::Output).multicast);
  EXPECT_FALSE(readUrl("udp://240.0.0.0:1", Use::Output).multicast);
  EXPECT_EQ(readUrl("udp://0.0.0.0:1", Use::Input).address, "0.0.0.0");
  EXPECT_EQ(readUrl("udp://@[::]:1", Use::Input).address, "::");
}

TEST(Url, OptionsOfInputs) {
  const Url url = readUrl("rtp://239.1.2.3:5?iface=lo&source=10.0.0.1&rcvbuf=0x10000", Use::Input);
  EXPECT_EQ(url.iface, "lo");
  EXPECT_EQ(url.source, "10.0.0.1");
  EXPECT_EQ(url.rcvbuf, 65536U);
  EXPECT_EQ(readUrl("udp://[ff35::1]:5?source=[2001:DB8::1]", Use::Input).source, "2001:db8::1");
  EXPECT_EQ(readUrl("udp://[ff35::1]:5?source=2001:db8::1", Use::Input).source, "2001:db8::1");
}

TEST(Url, OptionsOfOutputs) {
  const Url url = readUrl("rtp://239.1.2.3:5?delay=0&dscp=63&ttl=255&iface=lo", Use::Output);
  EXPECT_EQ(url.delayMs, 0U);
  EXPECT_EQ(url.dscp, 63);
  EXPECT_EQ(url.ttl, 255);
  EXPECT_EQ(url.iface, "lo");
}

TEST(Url, AnUnknownScheme) {
  expectError("http://1.2.3.4:5",
              "'http://' is unknown; there are udp:// and rtp://, a path, file:PATH (also for a "
              "path with '://' in it) and -");
  expectErrorBegins("a/b://c", "'a/b://' is unknown; ");
  expectErrorBegins("://", "'://' is unknown; ");
}

TEST(Url, Ports) {
  const std::string form = "right is udp://GROUP:PORT or udp://[V6]:PORT";
  expectError("udp://239.1.1.1", "the port is missing; " + form);
  expectError("udp://239.1.1.1:", "the port is missing; " + form);
  expectError("udp://[ff15::1]", "the port is missing; " + form);
  expectError("udp://[ff15::1]5", "the port is missing; " + form);
  expectError("rtp://[ff15::1]x:5",
              "the port is missing; right is rtp://GROUP:PORT or rtp://[V6]:PORT");
  for (const std::string port :
       {"0", "65536", "-1", "+5", "5x", "0x10", "5/", "99999999999999999999"}) {
    expectError("udp://239.1.1.1:" + port,
                "the port is '" + port + "', not a number from 1 to 65535");
  }
}

TEST(Url, TextBeforeAnAt) {
  expectError("udp://10.0.0.1@239.1.1.1:5",
              "the text before '@' means a source to some programs and an interface to others: "
              "write ?source= or ?iface=");
  expectError("udp://lo@239.1.1.1:5",
              "the text before '@' means a source to some programs and an interface to others: "
              "write ?iface=",
              Use::Output);
}

TEST(Url, Addresses) {
  const std::string form = "right is udp://GROUP:PORT or udp://[V6]:PORT";
  expectError("udp://:5", "the address is missing; " + form +
                              ", or 0.0.0.0 or [::] for every address of this machine");
  expectError("udp://", "the address is missing; " + form, Use::Output);
  expectError("udp://[]:5", "the address is missing; " + form, Use::Output);
  expectError("udp://headend.example:5",
              "'headend.example' is a name, and names are not looked up: a numeric address is "
              "needed");
  expectError("udp://239.1.1:5", "'239.1.1' is no IPv4 or IPv6 address");
  expectError("udp://239.1.1.256:5", "'239.1.1.256' is no IPv4 or IPv6 address");
  expectError("udp://[ff15::1::2]:5", "'ff15::1::2' is no IPv4 or IPv6 address");
  expectError("udp://ff15::1:5", "an IPv6 address stands in brackets; " + form);
  expectError("udp://[ff15::1:5", "']' is missing behind the address; " + form);
  expectError("udp://[239.1.1.1]:5", "brackets are for IPv6 addresses; " + form);
  expectError("udp://[::ffff:239.1.1.1]:5", "::ffff:239.1.1.1 is an IPv4 address; write it as one");
  expectError("udp://[fe80::1%eth7]:5", "an interface is named by ?iface=eth7, not by '%'");
}

TEST(Url, AReceiverThatIsNone) {
  const std::string why =
      " is the address of no receiver; a multicast group or the address of a machine is needed";
  expectError("udp://0.0.0.0:5", "0.0.0.0" + why, Use::Output);
  expectError("udp://[::]:5", "::" + why, Use::Output);
  expectError("udp://255.255.255.255:5", "255.255.255.255" + why, Use::Output);
  expectError("udp://255.255.255.255:5", "255.255.255.255" + why);
}

TEST(Url, LinkLocalNeedsAnInterface) {
  for (const std::string group :
       {"fe80::1", "febf::1", "ff02::1", "ff12::1", "ff01::1", "ff11::1"}) {
    expectErrorBegins("udp://[" + group + "]:5",
                      group +
                          " is an address of one link: name its interface with ?iface=; there "
                          "are: lo");
    EXPECT_EQ(errorOf("udp://[" + group + "]:5?iface=lo"), "");
  }
  for (const std::string group : {"fec0::1", "ff05::1", "ff15::1", "fd80::1", "2001:db8::1"}) {
    EXPECT_EQ(errorOf("udp://[" + group + "]:5"), "");
  }
}

TEST(Url, UnknownOptions) {
  expectError("udp://239.1.1.1:5?pkt_size=1316",
              "there is no option 'pkt_size'; an input has iface, source, rcvbuf");
  expectError("udp://239.1.1.1:5?", "there is no option ''; an output has iface, ttl, dscp, delay",
              Use::Output);
  expectErrorBegins("udp://239.1.1.1:5?iface=lo&", "there is no option ''; ");
  expectErrorBegins("udp://239.1.1.1:5?TTL=5", "there is no option 'TTL'; ", Use::Output);
}

TEST(Url, OptionsOfTheOtherUse) {
  for (const std::string name : {"ttl", "dscp", "delay"}) {
    expectError("udp://239.1.1.1:5?" + name + "=1",
                "'" + name + "' is an option of outputs; an input has iface, source, rcvbuf");
  }
  for (const std::string name : {"source", "rcvbuf"}) {
    expectError("udp://239.1.1.1:5?" + name + "=1",
                "'" + name + "' is an option of inputs; an output has iface, ttl, dscp, delay",
                Use::Output);
  }
}

TEST(Url, OptionsWithoutAValueOrTwice) {
  expectError("udp://239.1.1.1:5?iface", "'iface' has no value; right is iface=NAME");
  expectError("udp://239.1.1.1:5?iface=", "'iface' has no value; right is iface=NAME");
  expectError("udp://239.1.1.1:5?delay=&ttl=3", "'delay' has no value; right is delay=MS",
              Use::Output);
  expectError("udp://239.1.1.1:5?iface=lo&iface=lo", "'iface' is given twice");
}

TEST(Url, Numbers) {
  const auto text = [](const std::string &option) { return "udp://239.1.1.1:5?" + option; };
  for (const std::string value : {"4095", "1073741824", "-1", "4M", "1e6"}) {
    expectError(text("rcvbuf=" + value),
                "rcvbuf is '" + value + "', not a number from 4096 to 1073741823");
  }
  EXPECT_EQ(readUrl(text("rcvbuf=4096"), Use::Input).rcvbuf, 4096U);
  EXPECT_EQ(readUrl(text("rcvbuf=1073741823"), Use::Input).rcvbuf, 1073741823U);
  expectError(text("ttl=0"), "ttl is '0', not a number from 1 to 255", Use::Output);
  expectError(text("ttl=256"), "ttl is '256', not a number from 1 to 255", Use::Output);
  EXPECT_EQ(readUrl(text("ttl=1"), Use::Output).ttl, 1);
  expectError(text("dscp=64"), "dscp is '64', not a number from 0 to 63", Use::Output);
  EXPECT_EQ(readUrl(text("dscp=0"), Use::Output).dscp, 0);
  expectError(text("delay=2001"), "delay is '2001', not a number from 0 to 2000", Use::Output);
  EXPECT_EQ(readUrl(text("delay=2000"), Use::Output).delayMs, 2000U);
}

TEST(Url, AnInterfaceThatIsNotThere) {
  expectErrorBegins("udp://239.1.1.1:5?iface=nowhere0",
                    "there is no network interface 'nowhere0'; there are: lo");
  expectErrorBegins("udp://239.1.1.1:5?iface=127.0.0.1",
                    "there is no network interface '127.0.0.1'; there are: lo", Use::Output);
}

TEST(Url, Sources) {
  expectError("udp://239.1.1.1:5?source=2001:db8::1",
              "the source 2001:db8::1 is of another family than the group; an IPv4 address is "
              "needed");
  expectError("udp://[ff35::1]:5?source=10.0.0.1",
              "the source 10.0.0.1 is of another family than the group; an IPv6 address is needed");
  expectError("udp://127.0.0.1:5?source=10.0.0.1",
              "a source is asked for with a multicast group only, and 127.0.0.1 is none");
  for (const std::string source : {"239.1.1.1", "0.0.0.0", "255.255.255.255"}) {
    expectError("udp://232.1.1.1:5?source=" + source,
                "the source " + source + " is no address of a sender");
  }
  expectError("udp://232.1.1.1:5?source=sender.example",
              "source: 'sender.example' is a name, and names are not looked up: a numeric address "
              "is needed");
}
