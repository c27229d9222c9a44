// The fence around the decoders: whatever a file does to its decoder, the program goes on.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <limits>
#include <thread>

#include "files_test_support.h"
#include "host/files/decoder_pool.h"
#include "host/files/handover.h"

namespace qmr::test {
namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kAddressSanitizer = true;
#else
constexpr bool kAddressSanitizer = false;
#endif
#else
constexpr bool kAddressSanitizer = false;
#endif

class Fence : public testing::Test {
 protected:
  Fence() : good_(folder_ / "good.fits") { WriteBytes(good_, SmallFits(40, 30, 1)); }

  void ExpectStillWorking() const {
    const auto image = ReadImageFile(good_);
    ASSERT_TRUE(image) << image.Error().Message();
    EXPECT_EQ(image->Plane(0)[41], 41.0F);
    EXPECT_EQ(KeywordNumber(image->keywords, "EXPTIME"), 12.5);
  }

  const TemporaryFolder folder_;
  const std::string good_;
};

TEST_F(Fence, DecodersThatMisbehaveAreTheErrorOfTheirFile) {
  struct Case {
    DecoderFault fault;
    FileErrorKind kind;
    const char* reason;
  };
  const Case cases[] = {{DecoderFault::Crash, FileErrorKind::Crashed, "crashed (SIGSEGV)"},
                        {DecoderFault::Abort, FileErrorKind::Crashed, "crashed (SIGABRT)"},
                        {DecoderFault::Hang, FileErrorKind::TimedOut, "did not end within 0.3 s"},
                        {DecoderFault::Spin, FileErrorKind::TimedOut, "did not end within 0.3 s"},
                        {DecoderFault::Hoard, FileErrorKind::TooLarge, "more memory"},
                        {DecoderFault::HugePixels, FileErrorKind::TooLarge, "100000 x 100000 x 3"},
                        {DecoderFault::Silent, FileErrorKind::Crashed, "without an answer"},
                        {DecoderFault::Fork, FileErrorKind::Internal, "no process started"},
                        {DecoderFault::LieSize, FileErrorKind::Crashed, "cannot be true"},
                        {DecoderFault::LieKeywords, FileErrorKind::Crashed, "cannot be true"},
                        {DecoderFault::UnsealedPixels, FileErrorKind::Crashed, "cannot be true"}};
  for (const Case& wrong : cases) {
    SCOPED_TRACE(wrong.reason);
    ReadOptions options;
    options.fault = wrong.fault;
    options.memoryBytes = std::uint64_t{128} << 20;
    if (wrong.kind == FileErrorKind::TimedOut) options.timeoutSeconds = 0.3;
    // Frames held here empty the shelf of buffers, so that the lies are told of a new memory file.
    std::vector<FileResult<DecodedImage>> held;
    while (held.size() < 5) held.push_back(ReadImageFile(good_));
    const auto image = ReadImageFile(good_, options);
    ASSERT_FALSE(image);
    EXPECT_EQ(image.Error().path, good_);
    // The sanitizer's own allocator aborts where the ordinary one reports the lack of memory.
    if (kAddressSanitizer && wrong.fault == DecoderFault::Hoard) continue;
    EXPECT_EQ(image.Error().kind, wrong.kind);
    EXPECT_NE(image.Error().reason.find(wrong.reason), std::string::npos) << image.Error().reason;
    ExpectStillWorking();
  }
}

TEST_F(Fence, DecodersSeeNoFilesOfTheProgram) {
  const int extra = open("/dev/null", O_RDONLY);  // without close-on-exec
  ReadOptions options;
  options.fault = DecoderFault::CountOpenFiles;
  const auto image = ReadImageFile(good_, options);
  close(extra);
  ASSERT_FALSE(image);
  // Standard streams, the file, the answer socket and perhaps a buffer; the listing itself is one more.
  EXPECT_TRUE(image.Error().reason == "open files: 5" || image.Error().reason == "open files: 6")
      << image.Error().reason;
}

TEST_F(Fence, SizesWithinTheMachineAreAskedOfTheLimit) {
  const std::string path = folder_ / "large.fits";
  WriteBytes(path, FitsHeader(PrimaryCards(8, {4000, 3000})) + Padded(std::string(12000000, '\1')));
  ReadOptions options;
  options.memoryBytes = 12000000 + (1 << 20);
  const auto refused = ReadImageFile(path, options);
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.Error().kind, FileErrorKind::TooLarge) << refused.Error().reason;
  options.memoryBytes = 12000000 * 5 + (32 << 20);
  EXPECT_TRUE(ReadImageFile(path, options));
  options.memoryBytes = 0;
  options.memoryCap = 1 << 20;
  EXPECT_FALSE(ReadImageFile(path, options));
}

TEST_F(Fence, DamagedFilesNeverHarmTheProgram) {
  // An extension behind an empty primary unit, a cube with a longer header, and a packed file.
  const std::string cube = SmallFits(24, 20, 3);
  const std::string extension = FitsHeader(PrimaryCards(8, {})) +
                                FitsHeader({"XTENSION= 'BINTABLE'",  "BITPIX  = 8",  "NAXIS   = 2",
                                            "NAXIS1  = 8",           "NAXIS2  = 20", "PCOUNT  = 900",
                                            "GCOUNT  = 1",           "TFIELDS = 1",  "TTYPE1  = 'COMPRESSED_DATA'",
                                            "TFORM1  = '1PB(45)'",   "ZIMAGE  = T",  "ZCMPTYPE= 'RICE_1'",
                                            "ZBITPIX = 16",          "ZNAXIS  = 2",  "ZNAXIS1 = 30",
                                            "ZNAXIS2 = 20",          "ZTILE1  = 30", "ZTILE2  = 1",
                                            "ZNAME1  = 'BLOCKSIZE'", "ZVAL1   = 32"}) +
                                Padded(std::string(1060, '\7'));
  const std::string seeds[] = {cube, extension, Gzipped(cube)};
  ReadOptions options;
  options.timeoutSeconds = 5.0;
  options.memoryBytes = std::uint64_t{256} << 20;
  unsigned state = 2463534242U;
  const auto random = [&state](std::size_t below) {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    return static_cast<std::size_t>(state) % below;
  };
  const std::string path = folder_ / "mutant.fits";
  static constexpr std::string_view kCharacters = "0123456789-+.'/= TFEXND\0\xFF&";
  int images = 0;
  int errors = 0;
  for (int round = 0; round < 300; ++round) {
    std::string bytes = seeds[static_cast<std::size_t>(round) % 3];
    if (random(6) == 0) bytes.resize(random(bytes.size()) + 1);
    const std::size_t changes = 1 + random(12);
    for (std::size_t i = 0; i < changes; ++i) {
      // Mostly in the header, where the structure stands.
      const std::size_t place = random(random(4) == 0 ? bytes.size() : std::min<std::size_t>(bytes.size(), 4500));
      const bool plausible = random(3) != 0;
      bytes[place] = plausible ? kCharacters[random(kCharacters.size())] : static_cast<char>(random(256));
    }
    WriteBytes(path, bytes);
    const auto image = ReadImageFile(path, options);
    if (image) {
      ++images;
      ASSERT_EQ(image->pixels.Bytes() >= image->PlanePixels() * sizeof(float), true);
    } else {
      ++errors;
      EXPECT_EQ(image.Error().path, path);
      EXPECT_FALSE(image.Error().reason.empty());
      EXPECT_EQ(image.Error().Message().find('\n'), std::string::npos);
      EXPECT_NE(image.Error().kind, FileErrorKind::Internal) << image.Error().reason;
    }
  }
  EXPECT_GT(images, 10);
  EXPECT_GT(errors, 50);
  ExpectStillWorking();
}

TEST_F(Fence, PathsAreBytes) {
  const std::string content = SmallFits(40, 30, 1);
  for (const std::string& name :
       {std::string("with space.fits"), std::string("a[1:2,*].fits"), std::string("b.fits[0]"), std::string("c+1"),
        std::string("(d).fits(copy)"), std::string("line\nbreak.fits"), std::string("\xFF\xFE\x80.fits"),
        std::string("mem:"), std::string("!e.fits"), std::string("-"), std::string("f%d?.fits*")}) {
    SCOPED_TRACE(name);
    WriteBytes(folder_ / name, content);
    const auto image = ReadImageFile(folder_ / name);
    ASSERT_TRUE(image) << image.Error().Message();
    EXPECT_EQ(image->width, 40);
    EXPECT_EQ(image->path, folder_ / name);
  }
  const FileError error{"a\xFF\x1B[1m\n\xC3\xA9\\", "is bad", FileErrorKind::Damaged};
  EXPECT_EQ(error.Message(), "a\\xFF\\x1B[1m\\n\xC3\xA9\\\\: is bad");
}

TEST_F(Fence, ManyFilesAtOnce) {
  std::atomic<int> wrong{0};
  std::vector<std::thread> readers;
  for (int reader = 0; reader < 6; ++reader) {
    readers.emplace_back([&, reader] {
      const std::string path = folder_ / ("frame" + std::to_string(reader));
      WriteBytes(path, SmallFits(30 + reader, 20, 1));
      for (int round = 0; round < 15; ++round) {
        ReadOptions options;
        if (round % 5 == 4) options.fault = DecoderFault::Crash;
        const auto image = ReadImageFile(path, options);
        const bool right =
            round % 5 == 4 ? !image : image && image->width == 30 + reader && image->Plane(0)[599] == 599.0F;
        wrong += !right;
      }
    });
  }
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(wrong, 0);
}

TEST_F(Fence, BuffersThatCameBackHoldTheNewFrame) {
  WriteBytes(folder_ / "small.fits", SmallFits(39, 30, 1));
  std::vector<float> wanted(40 * 30);
  for (std::size_t i = 0; i < wanted.size(); ++i) wanted[i] = static_cast<float>(i);
  for (int round = 0; round < 6; ++round) {
    // Held frames keep their pixels while others come and go.
    const auto held = ReadImageFile(good_);
    ASSERT_TRUE(held);
    ReadOptions crash;
    crash.fault = DecoderFault::Crash;
    ReadImageFile(good_, crash);
    const auto smaller = ReadImageFile(folder_ / "small.fits");
    ASSERT_TRUE(smaller);
    EXPECT_EQ(smaller->Plane(0)[39 * 30 - 1], 39.0F * 30.0F - 1.0F);
    smaller->pixels.Floats()[0] = -1.0F;
    EXPECT_EQ(Values(*held), wanted);
  }
}

TEST_F(Fence, ALostServerIsReplaced) {
  DecoderPool pool(2);
  ASSERT_TRUE(pool.Start());
  const pid_t first = pool.ServerPid();
  ASSERT_TRUE(pool.Decode(good_, {}));
  // Lost between two files, then in the middle of one.
  kill(first, SIGKILL);
  EXPECT_TRUE(pool.Decode(good_, {}));
  EXPECT_NE(pool.ServerPid(), first);
  std::thread killer([&pool] {
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    kill(pool.ServerPid(), SIGKILL);
  });
  ReadOptions options;
  options.fault = DecoderFault::Hang;
  options.timeoutSeconds = 0.5;
  const auto image = pool.Decode(good_, options);
  killer.join();
  ASSERT_FALSE(image);
  EXPECT_EQ(image.Error().kind, FileErrorKind::TimedOut) << image.Error().reason;  // by the second server
  EXPECT_TRUE(pool.Decode(good_, {}));
}

// Waits for the end of a process that has become a child of ours.
bool EndsSoon(pid_t pid) {
  for (int i = 0; i < 500; ++i) {
    if (waitpid(pid, nullptr, WNOHANG) == pid) return true;
    if (kill(pid, 0) != 0) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

TEST_F(Fence, CtrlCLeavesNoProcessBehind) {
  ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);  // so that orphans come to us and can be seen to end
  int pipeEnds[2];
  ASSERT_EQ(pipe2(pipeEnds, O_CLOEXEC), 0);
  const pid_t program = fork();
  if (program == 0) {
    DecoderPool pool(2);
    pool.Start();
    const pid_t server = pool.ServerPid();
    std::thread hanging([&] {
      ReadOptions options;
      options.fault = DecoderFault::Hang;
      pool.Decode(good_, options);
    });
    const std::string listing = "/proc/" + std::to_string(server) + "/task/" + std::to_string(server) + "/children";
    pid_t decoder = 0;
    while (decoder == 0) std::ifstream(listing) >> decoder;
    const pid_t pids[2] = {server, decoder};
    if (write(pipeEnds[1], pids, sizeof(pids)) != sizeof(pids)) _exit(1);
    for (;;) pause();
  }
  pid_t pids[2] = {0, 0};
  ASSERT_EQ(read(pipeEnds[0], pids, sizeof(pids)), static_cast<ssize_t>(sizeof(pids)));
  close(pipeEnds[0]);
  close(pipeEnds[1]);
  // As the terminal does it: to all of the group.
  for (const pid_t pid : {pids[0], pids[1], program}) kill(pid, SIGINT);
  int status = 0;
  waitpid(program, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_TRUE(EndsSoon(pids[0])) << "the server is still there";
  EXPECT_TRUE(EndsSoon(pids[1])) << "the decoder is still there";
  prctl(PR_SET_CHILD_SUBREAPER, 0);
}

// ---- What a decoder claims
// -------------------------------------------------------------------------------------------

TEST(HandoverClaims, OnlyTrueOnesAreAccepted) {
  const std::vector<Keyword> keywords = {Keyword::Text("OBJECT", "M 42", "seen"),
                                         Keyword::Integer("N", -3),
                                         Keyword::Real("X", 0.25),
                                         Keyword::Logical("B", true),
                                         {"NONE", {}, {}}};
  const std::string packed = PackKeywords(keywords);
  const auto bytesOf = [](const std::string& text) { return std::as_bytes(std::span(text.data(), text.size())); };
  EXPECT_EQ(UnpackKeywords(bytesOf(packed)), keywords);
  for (std::size_t length = 1; length < packed.size(); ++length) {
    const auto cut = UnpackKeywords(bytesOf(packed).first(length));
    EXPECT_TRUE(!cut || cut->size() < keywords.size()) << length;
  }

  Handover honest;
  honest.magic = kHandoverMagic;
  honest.width = 10;
  honest.height = 5;
  honest.planes = 3;
  honest.fileBits = 16;
  honest.hdu = 1;
  honest.keywordBytes = packed.size();
  SetText(honest, "FITS\n\x1B");
  const auto accept = [&](const Handover& claim, bool seal = true) {
    Descriptor memory(memfd_create("claims", MFD_ALLOW_SEALING | MFD_CLOEXEC));
    EXPECT_EQ(ftruncate(memory.Get(), 600), 0);
    EXPECT_EQ(pwrite(memory.Get(), packed.data(), packed.size(), 600), static_cast<ssize_t>(packed.size()));
    if (seal) {
      EXPECT_EQ(fcntl(memory.Get(), F_ADD_SEALS, F_SEAL_SHRINK), 0);
    }
    PixelMapping none;
    return AcceptImage(claim, memory, none);
  };
  const auto image = accept(honest);
  ASSERT_TRUE(image);
  EXPECT_EQ(image->keywords, keywords);
  EXPECT_EQ(image->format, "FITS??");
  EXPECT_FALSE(accept(honest, false)) << "could be shortened later";

  constexpr int kMost = std::numeric_limits<int>::max(), kLeast = std::numeric_limits<int>::min();
  for (int Handover::*const side : {&Handover::width, &Handover::height, &Handover::planes}) {
    for (const int value : {0, -1, 11, kMost, kLeast}) {
      Handover claim = honest;
      claim.*side = value;
      EXPECT_FALSE(accept(claim)) << value;
    }
  }
  void (*const lies[])(Handover&) = {[](Handover& h) { h.fileBits = 12; },
                                     [](Handover& h) { h.hdu = 0; },
                                     [](Handover& h) { h.blankPixels = -1; },
                                     [](Handover& h) { h.blankPixels = 151; },
                                     [](Handover& h) { h.keywordBytes += 1; },
                                     [](Handover& h) { h.keywordBytes = std::numeric_limits<std::uint64_t>::max(); },
                                     [](Handover& h) { h.keywordBytes -= 1; },
                                     [](Handover& h) { h.reusedBuffer = 1; }};  // none was given
  for (const auto& lie : lies) {
    Handover claim = honest;
    lie(claim);
    EXPECT_FALSE(accept(claim)) << &lie - lies;
  }
  Descriptor device(open("/dev/zero", O_RDWR | O_CLOEXEC));
  PixelMapping none;
  EXPECT_FALSE(AcceptImage(honest, device, none));
}

}  // namespace
}  // namespace qmr::test
