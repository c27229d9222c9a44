#include "host/files/raw_decode.h"

#include <libraw.h>
#include <omp.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string_view>

#include "host/files/fits_samples.h"
#include "host/files/image_file.h"
#include "host/files/mosaic.h"

namespace qmr {
namespace {

constexpr const char* kNotKnown = "not a FITS or camera raw file, or a camera raw file that is cut off";

[[noreturn]] void Fail(FileErrorKind kind, const std::string& reason) {
  throw DecodeFailure(kind, reason);
}

[[noreturn]] void FailWithCode(int code) {
  switch (code) {
    case LIBRAW_FILE_UNSUPPORTED:
      Fail(FileErrorKind::NotRecognised, kNotKnown);
    case LIBRAW_UNSUFFICIENT_MEMORY:
    case LIBRAW_TOO_BIG:
    case LIBRAW_MEMPOOL_OVERFLOW:
      Fail(FileErrorKind::TooLarge, "the camera raw file needs more memory than its decoder may use");
    case LIBRAW_IO_ERROR:
      Fail(FileErrorKind::Damaged, "the camera raw file is cut off or damaged");
    default:
      Fail(FileErrorKind::Damaged, std::string("the camera raw file cannot be read: ") + LibRaw::strerror(code));
  }
}

// The library reports by codes, but some of its exceptions get out, and they are no std::exception.
void Call(const auto& step) {
  int code = LIBRAW_SUCCESS;
  try {
    code = step();
  } catch (LibRaw_exceptions thrown) {
    code = thrown == LIBRAW_EXCEPTION_ALLOC ? LIBRAW_UNSUFFICIENT_MEMORY : LIBRAW_DATA_ERROR;
  }
  if (code != LIBRAW_SUCCESS) FailWithCode(code);
}

// ---- What lies on the sensor

struct Layout {
  int planes = 1;
  std::string pattern;  // the letters of a Bayer mosaic from the top left of the visible area; empty without one
};

Layout FindLayout(LibRaw& raw) {
  const libraw_iparams_t& sensor = raw.imgdata.idata;
  if (sensor.is_foveon) Fail(FileErrorKind::Unsupported, "the sensor's colours lie in layers, which is not read");
  // The library leaves out part of what unpacks these.
  if (std::string_view(raw.unpack_function_name()).starts_with("lossy_dng"))
    Fail(FileErrorKind::Unsupported, "is a DNG packed with loss, which is not read");
  if (sensor.filters == 0) {
    if (sensor.colors == 1) return {};
    if (sensor.colors == 3) return {3, {}};
    Fail(FileErrorKind::Unsupported, "has " + std::to_string(sensor.colors) + " values a pixel");
  }
  if (sensor.filters == LIBRAW_XTRANS)
    Fail(FileErrorKind::Unsupported, "the sensor's mosaic is X-Trans, 6 x 6 pixels; only Bayer mosaics are read");
  if (raw.is_fuji_rotated())
    Fail(FileErrorKind::Unsupported, "the sensor's rows lie diagonally; only Bayer mosaics are read");
  // Smaller numbers stand for mosaics of their own kinds.
  constexpr unsigned kLeastPattern = 1000;
  // Rows after which the library's description comes again.
  constexpr int kRows = 8;
  std::string letters;
  bool bayer = sensor.filters >= kLeastPattern;
  for (int row = 0; bayer && row < kRows; ++row) {
    for (int column = 0; column < 2; ++column) {
      const int colour = raw.COLOR(row, column);
      const char letter = colour >= 0 && colour < 4 ? sensor.cdesc[colour] : '?';
      if (row < 2) letters += letter;
      bayer = bayer && letter == letters[static_cast<std::size_t>(2 * (row % 2) + column)];
    }
  }
  if (!bayer || BayerNumber(letters) == 0)
    Fail(FileErrorKind::Unsupported, "the colour filters of the sensor are no Bayer mosaic of red, green and blue");
  return {1, letters};
}

// Black level of a site, counted from the top left of the visible area; a plane's where there is no mosaic.
double SiteBlack(LibRaw& raw, int row, int column, int plane) {
  const libraw_colordata_t& c = raw.imgdata.color;
  const int colour = raw.imgdata.idata.filters ? raw.COLOR(row, column) : plane;
  double black = static_cast<double>(c.black) + static_cast<double>(c.cblack[std::clamp(colour, 0, 3)]);
  // Behind the levels of the colours stands a table of rows and columns that come again.
  constexpr unsigned kTable = 6;
  const unsigned rows = c.cblack[4], columns = c.cblack[5];
  if (rows == 0 || columns == 0 || rows > LIBRAW_CBLACK_SIZE || columns > LIBRAW_CBLACK_SIZE) return black;
  const unsigned at = kTable + static_cast<unsigned>(row) % rows * columns + static_cast<unsigned>(column) % columns;
  if (at < LIBRAW_CBLACK_SIZE) black += c.cblack[at];
  return black;
}

double MeanBlack(LibRaw& raw, const Layout& layout) {
  // The least common multiple of a Bayer cell and the usual tables.
  constexpr int kCell = 8;
  double sum = 0.0;
  for (int plane = 0; plane < layout.planes; ++plane)
    for (int row = 0; row < kCell; ++row)
      for (int column = 0; column < kCell; ++column) sum += SiteBlack(raw, row, column, plane);
  return sum / (kCell * kCell * layout.planes);
}

// ---- Keywords

// As many digits as the float has, so that 0.1 s does not become 0.10000000149.
double Decimal(float value) {
  std::array<char, 32> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
  return ParseNumber({digits.data(), static_cast<std::size_t>(end - digits.data())}).value_or(value);
}

bool IsPositive(float value) {
  return std::isfinite(value) && value > 0.0f;
}

// The texts are the file's; not even their ends are sure.
template <std::size_t Size>
std::string Text(const char (&field)[Size]) {
  std::string text(field, strnlen(field, Size));
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
  return std::string(TrimBlanks(text));
}

std::string CameraName(const libraw_iparams_t& sensor) {
  const std::string make = Text(sensor.make), model = Text(sensor.model);
  if (make.empty() || UpperCase(model).starts_with(UpperCase(make))) return model;
  return model.empty() ? make : make + " " + model;
}

// What the camera's clock showed: the library takes it for local time of this machine, which is set to UTC here.
std::string ClockText(std::time_t seconds) {
  std::tm parts{};
  std::array<char, 32> text{};
  if (seconds <= 0 || !gmtime_r(&seconds, &parts)) return {};
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts)};
}

void AddWhiteBalance(const libraw_colordata_t& color, std::vector<Keyword>& keywords) {
  const float* gains = color.cam_mul;
  if (!std::all_of(gains, gains + 3, IsPositive)) return;
  const auto gain = [&](int i) { return Decimal(gains[i] / gains[1]); };
  keywords.push_back(Keyword::Real("WB_RED", gain(0), "white balance of the camera, factor of red"));
  keywords.push_back(Keyword::Real("WB_GREEN", 1.0, "factor of green"));
  keywords.push_back(Keyword::Real("WB_BLUE", gain(2), "factor of blue"));
}

std::vector<Keyword> MakeKeywords(LibRaw& raw, const Layout& layout) {
  const libraw_data_t& told = raw.imgdata;
  std::vector<Keyword> keywords;
  if (const std::string name = CameraName(told.idata); !name.empty())
    keywords.push_back(Keyword::Text("INSTRUME", name, "camera"));
  if (const std::string date = ClockText(told.other.timestamp); !date.empty())
    keywords.push_back(Keyword::Text("DATE-OBS", date, "by the camera's clock"));
  if (IsPositive(told.other.shutter))
    keywords.push_back(Keyword::Real("EXPTIME", Decimal(told.other.shutter), "[s] exposure"));
  // Sensitivities beyond 16 bits stand elsewhere.
  constexpr float kMostIso = 65535.0f;
  float iso = told.other.iso_speed;
  if (iso == kMostIso && told.makernotes.common.real_ISO > kMostIso) iso = told.makernotes.common.real_ISO;
  if (IsPositive(iso) && iso < 1e9f)
    keywords.push_back(Keyword::Integer("ISOSPEED", std::llround(iso), "sensitivity, ISO"));
  if (IsPositive(told.other.focal_len))
    keywords.push_back(Keyword::Real("FOCALLEN", Decimal(told.other.focal_len), "[mm] focal length of the lens"));
  for (const float degrees : {told.makernotes.common.SensorTemperature, told.makernotes.common.CameraTemperature}) {
    // What is not known is -1000, or 0 where a maker leaves the field empty.
    constexpr float kLeast = -100.0f, kMost = 150.0f;
    if (!(degrees > kLeast && degrees < kMost) || degrees == 0.0f) continue;
    keywords.push_back(Keyword::Real("CCD-TEMP", Decimal(degrees), "[C] in the camera"));
    break;
  }
  if (!layout.pattern.empty())
    keywords.push_back(Keyword::Text("BAYERPAT", layout.pattern, "colours of rows and columns 1 and 2"));
  else if (layout.planes == 1)
    keywords.push_back(Keyword::Text("COLORTYP", "MONO", "sensor without colour filters"));
  keywords.push_back(Keyword::Text("ROWORDER", "TOP-DOWN", "order of the rows"));
  keywords.push_back(Keyword::Real("PEDESTAL", MeanBlack(raw, layout), "black level of the sensor, not subtracted"));
  const bool floats = told.rawdata.float_image || told.rawdata.float3_image || told.rawdata.float4_image;
  const double white = floats && IsPositive(told.color.fmaximum) ? Decimal(told.color.fmaximum)
                                                                 : static_cast<double>(told.color.maximum);
  if (white > 0.0) keywords.push_back(Keyword::Real("SATURATE", white, "white level of the sensor"));
  AddWhiteBalance(told.color, keywords);
  return keywords;
}

// ---- Pixels

// Samples as the library holds them: so many values a pixel, rows `pitch` bytes apart.
struct Samples {
  const void* first = nullptr;
  std::size_t values = 1;
  std::size_t valueBytes = sizeof(ushort);
  bool floats = false;
};

Samples FindSamples(const libraw_rawdata_t& data, const Layout& layout) {
  if (layout.planes == 1) {
    if (data.raw_image) return {data.raw_image, 1, sizeof(ushort), false};
    if (data.float_image) return {data.float_image, 1, sizeof(float), true};
  } else {
    if (data.color4_image) return {data.color4_image, 4, sizeof(ushort), false};
    if (data.color3_image) return {data.color3_image, 3, sizeof(ushort), false};
    if (data.float4_image) return {data.float4_image, 4, sizeof(float), true};
    if (data.float3_image) return {data.float3_image, 3, sizeof(float), true};
  }
  Fail(FileErrorKind::Unsupported, "the camera raw file holds its pixels in a way that is not read");
}

template <class Value>
void CopyPlane(const Samples& samples, std::size_t offset, std::size_t pitch, int width, int height, float* to) {
  const auto* row = static_cast<const std::byte*>(samples.first) + offset;
  for (int y = 0; y < height; ++y, row += pitch, to += width) {
    const auto* from = reinterpret_cast<const Value*>(row);
    for (int x = 0; x < width; ++x) to[x] = static_cast<float>(from[static_cast<std::size_t>(x) * samples.values]);
  }
}

std::int64_t CopyPixels(const libraw_data_t& told, const Layout& layout, DecodeReport& report, PixelSink& sink) {
  const libraw_image_sizes_t& size = told.sizes;
  const Samples samples = FindSamples(told.rawdata, layout);
  if (size.left_margin + size.width > size.raw_width || size.top_margin + size.height > size.raw_height)
    Fail(FileErrorKind::Damaged, "the visible area of the camera raw file reaches beyond its sensor");
  report.width = size.width;
  report.height = size.height;
  report.fileBits = samples.floats ? -32 : 16;
  const std::size_t pixelBytes = samples.values * samples.valueBytes;
  const std::size_t pitch = std::max<std::size_t>(size.raw_pitch, size.raw_width * pixelBytes);
  float* const to = sink.Allocate(size.width, size.height, layout.planes);
  const std::size_t planePixels = std::size_t{size.width} * size.height;
  for (int plane = 0; plane < layout.planes; ++plane) {
    const auto p = static_cast<std::size_t>(plane);
    const std::size_t offset = size.top_margin * pitch + size.left_margin * pixelBytes + p * samples.valueBytes;
    const auto copy = samples.floats ? CopyPlane<float> : CopyPlane<ushort>;
    copy(samples, offset, pitch, size.width, size.height, to + p * planePixels);
  }
  return samples.floats ? BlankNonFinite({to, planePixels * static_cast<std::size_t>(layout.planes)}) : 0;
}

}  // namespace

bool LooksLikeCameraRaw(std::span<const std::byte> bytes) {
  // The library would take a file of any content for that of an old camera if only its length fits.
  using namespace std::string_view_literals;
  static constexpr std::string_view kStarts[] = {"II"sv, "MM"sv, "FUJIFILM"sv, "\0MRM"sv, "FOVb"sv};
  static constexpr std::size_t kBrandAt = 4;
  static constexpr std::size_t kLeast = 32;
  if (bytes.size() < kLeast) return false;
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), kLeast);
  return std::any_of(std::begin(kStarts), std::end(kStarts), [&](auto start) { return text.starts_with(start); }) ||
         text.substr(kBrandAt).starts_with("ftypcrx");
}

DecodeReport DecodeCameraRaw(std::span<const std::byte> bytes, PixelSink& sink) {
  // This process serves one file and ends with it. One thread: those of the process that this one was forked from
  // aren't here, and files are read side by side anyway.
  omp_set_num_threads(1);
  setenv("TZ", "UTC", 1);
  tzset();

  const auto raw = std::make_unique<LibRaw>(LIBRAW_OPIONS_NO_MEMERR_CALLBACK | LIBRAW_OPIONS_NO_DATAERR_CALLBACK);
  raw->imgdata.params.raw_processing_options &= ~unsigned{LIBRAW_PROCESSING_CONVERTFLOAT_TO_INT};
  Call([&] { return raw->open_buffer(const_cast<std::byte*>(bytes.data()), bytes.size()); });
  const Layout layout = FindLayout(*raw);
  PixelBytes(raw->imgdata.sizes.width, raw->imgdata.sizes.height, layout.planes);
  Call([&] { return raw->unpack(); });
  // The library goes on behind damaged places; what it makes of them is no picture.
  if (raw->error_count() > 0) Fail(FileErrorKind::Damaged, "the pixels of the camera raw file are damaged");

  DecodeReport report;
  report.format = raw->imgdata.idata.dng_version ? std::string(kCameraRawFormat) + ", DNG" : kCameraRawFormat;
  report.planes = layout.planes;
  report.keywords = MakeKeywords(*raw, layout);
  report.blankPixels = CopyPixels(raw->imgdata, layout, report, sink);
  return report;
}

}  // namespace qmr
