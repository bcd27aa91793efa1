// The converter's writers: small pictures of all kinds with any options give an Error, or a file that the reader takes, of
// the same picture where nothing is lost.
#include <sys/mman.h>
#include <unistd.h>

#include <cctype>
#include <optional>
#include <string>

#include "exif.h"
#include "format.h"
#include "support/fuzz.h"

namespace qelj::fuzz {
namespace {

using namespace qelconv;

// What options may be given: the words of all help texts, which name what they take, in front of anything else.
const std::vector<std::string>& words() {
  static const std::vector<std::string> all = [] {
    std::vector<std::string> list = {"0", "-1", "1e9", "nan", "16x16", "1x7", "4x8", "0.5,2,9", "30,40", ""};
    for (const Format* format : formats())
      for (const OptionSpec& spec : format->options)
        for (const std::string text : {spec.argument ? spec.argument : "", spec.help}) {
          std::string word;
          for (const char c : text + " ")
            if (std::isalnum(static_cast<unsigned char>(c)) || c == '/') word += c;
            else if (!word.empty()) list.push_back(std::exchange(word, ""));
        }
    return list;
  }();
  return all;
}

// A file without a name, for options that name one.
class Nameless {
 public:
  explicit Nameless(const std::vector<uint8_t>& bytes) : file_(memfd_create("fuzz", 0)) {
    FUZZ_EXPECT(file_ >= 0 && write(file_, bytes.data(), bytes.size()) == ssize_t(bytes.size()));
  }
  ~Nameless() { close(file_); }
  Nameless(const Nameless&) = delete;
  std::string path() const { return "/proc/self/fd/" + std::to_string(file_); }

 private:
  int file_;
};

std::string valueOf(Input& input) {
  std::string value = words()[size_t(input.in(0, int32_t(words().size()) - 1))];
  const uint8_t more = input.take();
  if (more & 1) value = std::to_string(input.in(-2, 300));
  if (more & 2) value += (more & 4 ? "," : "x") + words()[size_t(input.in(0, int32_t(words().size()) - 1))];
  return value;
}

bool keepsSamples(const Format& format, const Options& options, const Stages& stages) {
  const std::string ending = format.extensions[0];
  const auto none = [&](std::initializer_list<const char*> names) {
    return std::none_of(names.begin(), names.end(), [&](const char* name) { return options.has(name); });
  };
  if (!stages.losses().empty()) return false;
  if (ending == ".jpg") return options.has("lossless") && none({"point-transform"});
  if (ending == ".j2k" || ending == ".jp2") return none({"irreversible", "rate", "psnr"});
  if (ending == ".jxr") return none({"quality", "quantizer", "sampling"});
  return ending != ".dds" && ending != ".ktx2" && ending != ".pfm";
}

void expectSame(const Image& original, const Image& back) {
  if (back.colour != original.colour) return;
  FUZZ_EXPECT(back.half == original.half);
  const Image wide = original.half ? original : withBits(original, back.bits);
  FUZZ_EXPECT(back.bits >= original.bits && back.data == wide.data);
}

}  // namespace

void run(Input input) {
  const auto& all = formats();
  const Format& format = *all[input.take() % all.size()];
  Image image(input.in(1, 40), input.in(1, 40), Colour(input.take() % 5), input.in(1, 16));
  image.half = image.bits == 16 && input.take() & 1;
  Options options;
  std::optional<Nameless> script;
  for (int count = input.take() % 5; count > 0 && !format.options.empty(); --count) {
    const OptionSpec& spec = format.options[input.take() % format.options.size()];
    if (spec.argument && !std::strcmp(spec.argument, "FILE")) {
      if (!script) script.emplace(input.bytes(size_t(input.in(0, 200))));
      options.set(spec.name, script->path());
    } else {
      options.set(spec.name, spec.argument ? valueOf(input) : "");
    }
  }
  // Each layer is sought over all tiles and blocks: hundreds of them take their time.
  if (options.text("layers").size() > 1) return;
  image.metadata.exif = input.bytes(input.take());
  const auto samples = input.rest();
  for (size_t i = 0; i < image.data.size() / size_t(image.sampleBytes()); ++i) {
    const uint32_t byte = samples.empty() ? uint32_t(i) * 37 : samples[i % samples.size()];
    const uint32_t value = (byte * 0x0101 + uint32_t(i / 64)) & ((1u << image.bits) - 1);
    constexpr uint32_t kMinusZero = 0x8000;  // JPEG XR has one zero only
    image.setSample(i, image.half && value == kMinusZero ? 0 : value);
  }

  Stages stages;
  std::vector<uint8_t> bytes;
  try {
    bytes = format.write(image, options, stages);
  } catch (const Error&) {
    return;
  }
  const Format* const found = formatOfContent(bytes);
  FUZZ_EXPECT(found && found->read == format.read);
  Options reading;
  if (options.has("byte-planes")) reading.set("byte-planes", "");
  Stages stagesBack;
  const Image back = format.read(bytes, reading, stagesBack);
  FUZZ_EXPECT(back.width == image.width && back.height == image.height && back.missing.empty());
  if (keepsSamples(format, options, stages)) expectSame(image, back);
  Facts facts;
  format.describe(bytes, facts);
}

std::vector<Seed> seeds() {
  std::vector<Seed> all;
  const auto exif =
      makeExif({{{kMake, kText, {'m', 'a', 'k', 'e', 'r', 0}}, {kXResolution, kFraction, {0, 0, 1, 44, 0, 0, 0, 1}}},
                {{0x8827, kShort, {0, 200}}},
                {{1, kText, {'N', 0}}}});
  for (int format = 0; format < int(formats().size()); ++format)
    for (int colour = 0; colour < 5; ++colour)
      for (const int bits : {8, 16})
        for (int option = -1; option < int(formats()[size_t(format)]->options.size()); option += 2) {
          Seed seed;
          seed.byte(format).in(1, 21).in(1, 19).byte(colour).in(1, bits);
          if (bits == 16) seed.byte(colour == 0);
          seed.byte(option >= 0);
          if (option >= 0) seed.byte(option).in(0, option).byte(0);
          seed.byte(colour == 2 ? int(exif.size()) : 0).bytes(colour == 2 ? exif : std::vector<uint8_t>());
          all.push_back(seed.bytes({1, 90, 7, 255, 30, 30, 30, 2}));
        }
  return all;
}

}  // namespace qelj::fuzz
