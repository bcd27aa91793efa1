// Coefficients of pictures and their coded scans, made by the peer, and the peer's own coefficient coders from memory
// to memory.
#ifndef QELJ_BENCH_JPEG_PEER_H
#define QELJ_BENCH_JPEG_PEER_H

#include <cstddef>
#include <cstdio>
// jpeglib.h needs the two above.
#include <jpeglib.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <tuple>
#include <vector>

#include "qelj.h"
#include "support/pair.h"
#include "support/pictures.h"

namespace qelj::bench {

using Bytes = std::span<const uint8_t>;

enum class Coding { baseline, optimised, progressive };

// One component's blocks in rows.
struct Component {
  int width, height, across, down;  // in blocks; blocks of an MCU
  int dcTable, acTable;
};

// A scan of a coded file: what its header says, and where its entropy-coded segment lies.
struct Scan {
  std::vector<int> components;
  int ss, se, ah, al;
  std::array<int, 4> dcTable, acTable;  // by component
  size_t begin, end;
};
struct HuffmanLists {
  uint8_t bits[16], vals[256];
};
struct Coded {
  std::vector<uint8_t> file;
  std::vector<Scan> scans;
  std::vector<std::array<HuffmanLists, 8>> tables;  // in force in each scan: DC 0 to 3, AC 4 to 7
};

class Peer {
 public:
  // The photograph as the peer compresses it, 4:2:0 or 4:4:4, with the example tables.
  Peer(const Photo& photo, bool is444, int quality) {
    jpeg_compress_struct c = compressor();
    c.image_width = JDIMENSION(photo.width), c.image_height = JDIMENSION(photo.height);
    c.input_components = 3, c.in_color_space = JCS_RGB;
    jpeg_set_defaults(&c);
    jpeg_set_quality(&c, quality, TRUE);
    if (is444) c.comp_info[0].h_samp_factor = c.comp_info[0].v_samp_factor = 1;
    jpeg_start_compress(&c, TRUE);
    while (c.next_scanline < c.image_height) {
      JSAMPROW line = const_cast<uint8_t*>(photo.row(int(c.next_scanline)));
      jpeg_write_scanlines(&c, &line, 1);
    }
    const Bytes file = finish(c);
    first_.assign(file.begin(), file.end());

    // The coefficients stay in the peer's arrays, to write from, and are copied to ours.
    source_.err = jpeg_std_error(&errors_);
    jpeg_create_decompress(&source_);
    jpeg_mem_src(&source_, first_.data(), first_.size());
    jpeg_read_header(&source_, TRUE);
    arrays_ = jpeg_read_coefficients(&source_);
    for (int i = 0; i < source_.num_components; ++i) {
      const jpeg_component_info& info = source_.comp_info[i];
      components.push_back({int(info.width_in_blocks), int(info.height_in_blocks), info.h_samp_factor,
                            info.v_samp_factor, info.dc_tbl_no, info.ac_tbl_no});
      for (JDIMENSION y = 0; y < info.height_in_blocks; ++y) {
        const JBLOCKARRAY rows = source_.mem->access_virt_barray(j_common_ptr(&source_), arrays_[i], y, 1, FALSE);
        blocks.insert(blocks.end(), &rows[0][0][0], &rows[0][info.width_in_blocks - 1][64]);
      }
    }
  }
  ~Peer() { jpeg_destroy_decompress(&source_); }
  Peer(const Peer&) = delete;

  std::vector<Component> components;
  std::vector<int16_t> blocks;  // of all components, one after another

  size_t offset(size_t component) const {
    size_t all = 0;
    for (size_t i = 0; i < component; ++i) all += size_t(components[i].width * components[i].height) * 64;
    return all;
  }

  double nonZeros() const {  // a block
    return 64.0 * double(std::count_if(blocks.begin(), blocks.end(), [](int16_t c) { return c != 0; })) /
           double(blocks.size());
  }

  // jpeg_write_coefficients: headers, tables and scans, into memory that is kept for them.
  Bytes write(Coding coding) {
    jpeg_compress_struct c = compressor();
    jpeg_copy_critical_parameters(&source_, &c);
    if (coding == Coding::optimised) c.optimize_coding = TRUE;
    if (coding == Coding::progressive) jpeg_simple_progression(&c);
    jpeg_write_coefficients(&c, arrays_);
    return finish(c);
  }
  // jpeg_read_coefficients: headers, tables and scans of `file`, into the peer's arrays.
  static void read(const std::vector<uint8_t>& file) {
    jpeg_error_mgr errors;
    jpeg_decompress_struct d{};
    d.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&d);
    jpeg_mem_src(&d, file.data(), file.size());
    jpeg_read_header(&d, TRUE);
    jpeg_read_coefficients(&d);
    jpeg_finish_decompress(&d);
    jpeg_destroy_decompress(&d);
  }

  // write(), and the scans found in what it gave.
  Coded code(Coding coding) {
    const Bytes written = write(coding);
    Coded coded{{written.begin(), written.end()}, {}, {}};
    std::array<HuffmanLists, 8> tables{};
    const auto& f = coded.file;
    for (size_t i = 2; f[i + 1] != 0xD9;) {
      const size_t length = size_t(f[i + 2]) << 8 | f[i + 3], next = i + 2 + length;
      if (f[i + 1] == 0xC4)
        for (size_t p = i + 4; p < next;) {
          HuffmanLists& t = tables[size_t(f[p] >> 4) * 4 + (f[p] & 3)];
          std::memcpy(t.bits, &f[p + 1], 16);
          size_t count = 0;
          for (uint8_t n : t.bits) count += n;
          std::memcpy(t.vals, &f[p + 17], count);
          p += 17 + count;
        }
      const bool isScan = f[i + 1] == 0xDA;
      const uint8_t* header = &f[i + 4];
      i = next;
      if (isScan) {
        Scan scan{};
        for (int n = 0; n < header[0]; ++n) {
          const int id = header[1 + 2 * n] - 1;
          scan.components.push_back(id);
          scan.dcTable[size_t(id)] = header[2 + 2 * n] >> 4, scan.acTable[size_t(id)] = 4 + (header[2 + 2 * n] & 15);
        }
        const uint8_t* band = header + 1 + 2 * header[0];
        scan.ss = band[0], scan.se = band[1], scan.ah = band[2] >> 4, scan.al = band[2] & 15;
        scan.begin = next;
        while (f[i] != 0xFF || f[i + 1] == 0) ++i;
        scan.end = i;
        coded.scans.push_back(scan);
        coded.tables.push_back(tables);
      }
    }
    return coded;
  }

  // Calls block(pointer into `base`, component) for every block of a scan, in the scan's order.
  template <class T, class Call>
  void forEachBlock(const std::vector<int>& ids, T* base, Call&& block) const {
    if (ids.size() == 1) {
      const Component& c = components[size_t(ids[0])];
      T* p = base + offset(size_t(ids[0]));
      for (int n = 0; n < c.width * c.height; ++n) block(p + 64 * n, ids[0]);
      return;
    }
    // Where each block of an MCU starts, and how far the next MCU's is.
    struct Place {
      T* first;
      int id, across, down;
    };
    std::vector<Place> mcu;
    for (int id : ids) {
      const Component& c = components[size_t(id)];
      for (int v = 0; v < c.down; ++v)
        for (int h = 0; h < c.across; ++h)
          mcu.push_back({base + offset(size_t(id)) + 64 * (v * c.width + h), id, 64 * c.across, 64 * c.down * c.width});
    }
    const int columns = components[0].width / components[0].across, lines = components[0].height / components[0].down;
    for (int y = 0; y < lines; ++y)
      for (int x = 0; x < columns; ++x)
        for (const Place& p : mcu) block(p.first + x * p.across + y * p.down, p.id);
  }

 private:
  jpeg_compress_struct compressor() {
    static std::vector<uint8_t> out(32 << 20);
    jpeg_compress_struct c{};
    c.err = jpeg_std_error(&errors_);
    jpeg_create_compress(&c);
    outBuffer_ = out.data(), outSize_ = out.size();
    jpeg_mem_dest(&c, &outBuffer_, &outSize_);
    return c;
  }
  Bytes finish(jpeg_compress_struct& c) {
    jpeg_finish_compress(&c);
    jpeg_destroy_compress(&c);
    return {outBuffer_, outSize_};
  }

  std::vector<uint8_t> first_;
  unsigned char* outBuffer_ = nullptr;
  unsigned long outSize_ = 0;
  jpeg_error_mgr errors_;
  jpeg_decompress_struct source_{};
  jvirt_barray_ptr* arrays_ = nullptr;
};

// A picture of codedPictures() at a sampling and quality, made when it is first asked for.
struct Subject {
  const CodedPicture* picture;
  bool is444;
  int quality;

  std::string name() const {
    return picture->name + (is444 ? ", 4:4:4, quality " : ", 4:2:0, quality ") + std::to_string(quality);
  }
  Peer& peer() const {
    static std::map<std::tuple<std::string, bool, int>, std::unique_ptr<Peer>> all;
    static std::map<std::string, Photo> photos;
    if (!photos.contains(picture->name)) photos[picture->name] = picture->make();
    auto& made = all[{picture->name, is444, quality}];
    if (!made) made = std::make_unique<Peer>(photos[picture->name], is444, quality);
    return *made;
  }
};
inline std::vector<Subject> subjects(const std::vector<bool>& is444, const std::vector<int>& qualities) {
  std::vector<Subject> all;
  for (const CodedPicture& p : codedPictures())
    for (const bool full : is444)
      for (const int quality : qualities) all.push_back({&p, full, quality});
  return all;
}

// Room for a record.
template <class Record>
struct Storage {
  alignas(64) uint8_t bytes[1664];
  Record* get() { return reinterpret_cast<Record*>(bytes); }
};

}  // namespace qelj::bench

#endif
