// The input side of a job on a thread of its own. A BandQueue stands between the thread that makes a
// page's pixels (PDF rendering, image decoding, raster reading) and the thread that hands them to the
// plug-in, which stays the only one to call it, in band order. The input thread renders the bands in
// the order PrintPage asks for them into a few slots, ahead of the plug-in, each slot laid out as the
// plug-in reads the band (rows BandRowStride apart) in exactly the band's bytes; the plug-in's side
// lends each slot to PrintPage as the band itself, with no copy, and gives it back once it has gone out.
//
//   BandQueue queue(2);
//   queue.Run([&] { for (const BandRect& band : BandsOf(...)) if (!queue.Put(band, 3, fill)) return; });
//   source.Lend = [&](x, y, w, h) { return queue.Lend({x, y, w, h}); };
//   source.GiveBack = [&] { queue.GiveBack(); };
//   PrintPage(session, source, bandHeight);
//
// A failure of the input side reaches Lend after the bands queued before it; Stop ends the input side
// early (its next Put answers false). The destructor stops the input thread and waits for it.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/large_buffer.h"

namespace inkweave::host {

// A band's rectangle on the host's surface, pixels.
struct BandRect {
  std::int32_t X = 0, Y = 0, Width = 0, Height = 0;
  bool operator==(const BandRect&) const = default;
};

// The bands of a page in the order PrintPage hands them to the plug-in: portrait, full-width slices of
// bandHeight rows from the top; landscape, full-height slices of bandHeight columns from the left.
std::vector<BandRect> BandsOf(std::int32_t width, std::int32_t height, std::int32_t bandHeight, bool landscape);

class BandQueue {
 public:
  // Fills every pixel of the band into dst, one row every stride bytes (the bytes past a row's pixels
  // are already white). False with the reason in *error to stop the input side.
  using Fill = std::function<bool(std::uint8_t* dst, std::size_t stride, std::string* error)>;

  // At most `depth` bands (at least 1) are held at a time, the one being filled and the one lent
  // included: two let the input side fill a band while the plug-in reads the one before.
  explicit BandQueue(int depth);
  ~BandQueue();
  BandQueue(const BandQueue&) = delete;
  BandQueue& operator=(const BandQueue&) = delete;

  // Starts the input side on its own thread (once). When `input` returns, the queue is closed: a Lend
  // past the last band answers null. Wait waits for it to return.
  void Run(std::function<void()> input);
  void Wait();

  // The input side. Put waits for a free slot, fills it and queues it; false when the plug-in's side
  // has stopped or fill failed (its reason then reaches Lend). Fail queues a failure of the input
  // side's own (a page that cannot be opened).
  bool Put(const BandRect& band, int bytesPerPixel, const Fill& fill);
  void Fail(const std::string& reason);

  // The plug-in's side. Lend waits for the next band and answers its pixels, rows BandRowStride
  // apart, in a buffer of exactly the band's bytes that stays as it is until GiveBack or the next
  // Lend; null when the input side failed (Error() says why), ended, or queued another rectangle than
  // the one asked for. Stop tells the input side that no more bands are wanted.
  const std::uint8_t* Lend(const BandRect& band);
  void GiveBack();
  void Stop();
  const std::string& Error() const { return error_; }  // the plug-in's side only

 private:
  struct Slot {
    BandRect Band;
    LargeBuffer Pixels;
  };
  void Close();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Slot> slots_;
  std::vector<std::size_t> free_;  // slots the input side may fill
  std::deque<std::size_t> ready_;  // filled slots, in band order
  std::string failure_;            // the input side's failure, after the ready bands
  bool failed_ = false;
  bool closed_ = false;   // the input side has ended
  bool stopped_ = false;  // the plug-in's side wants no more bands
  std::string error_;
  std::optional<std::size_t> lent_;  // the slot the plug-in's side holds
  std::thread thread_;
};

}  // namespace inkweave::host
