// The input side of a job on a thread of its own. A BandQueue stands between the thread that makes a
// page's pixels (PDF rendering, image decoding, raster reading) and the thread that hands them to the
// plug-in, which stays the only one to call it, in band order. The input thread renders the bands in
// the order PrintPage asks for them into a few band-sized slots, ahead of the plug-in; the plug-in's
// side copies each into the host's band buffer when PrintPage asks for it.
//
//   BandQueue queue(2);
//   queue.Run([&] { for (const BandRect& band : BandsOf(...)) if (!queue.Put(band, 3, fill)) return; });
//   source.Render = [&](x, y, w, h, dst, stride) { return queue.Take({x, y, w, h}, dst, stride); };
//   PrintPage(session, source, bandHeight);
//
// A failure of the input side reaches Take after the bands queued before it; Stop ends the input side
// early (its next Put answers false). The destructor stops the input thread and waits for it.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

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
  // Fills every pixel of the band into dst, one row every stride bytes. False with the reason in
  // *error to stop the input side.
  using Fill = std::function<bool(std::uint8_t* dst, std::size_t stride, std::string* error)>;

  // At most `depth` bands (at least 1) are held at a time, the one being filled included.
  explicit BandQueue(int depth);
  ~BandQueue();
  BandQueue(const BandQueue&) = delete;
  BandQueue& operator=(const BandQueue&) = delete;

  // Starts the input side on its own thread (once). When `input` returns, the queue is closed: a Take
  // past the last band answers false. Wait waits for it to return.
  void Run(std::function<void()> input);
  void Wait();

  // The input side. Put waits for a free slot, fills it and queues it; false when the plug-in's side
  // has stopped or fill failed (its reason then reaches Take). Fail queues a failure of the input
  // side's own (a page that cannot be opened).
  bool Put(const BandRect& band, int bytesPerPixel, const Fill& fill);
  void Fail(const std::string& reason);

  // The plug-in's side. Take waits for the next band and copies it into dst, one row every stride
  // bytes; false when the input side failed (Error() says why), ended, or queued another rectangle
  // than the one asked for. Stop tells the input side that no more bands are wanted.
  bool Take(const BandRect& band, std::uint8_t* dst, std::size_t stride);
  void Stop();
  const std::string& Error() const { return error_; }  // the plug-in's side only

 private:
  struct Slot {
    BandRect Band;
    int BytesPerPixel = 0;
    std::vector<std::uint8_t> Pixels;
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
  std::thread thread_;
};

}  // namespace inkweave::host
