#include "host/band_queue.h"

#include <algorithm>
#include <cstring>
#include <exception>

#include "host/host.h"

namespace inkweave::host {

std::vector<BandRect> BandsOf(std::int32_t width, std::int32_t height, std::int32_t bandHeight, bool landscape) {
  std::vector<BandRect> bands;
  if (width < 1 || height < 1 || bandHeight < 1) return bands;
  const std::int32_t extent = landscape ? width : height;
  for (std::int32_t start = 0; start < extent; start += std::min(bandHeight, extent - start)) {
    const std::int32_t size = std::min(bandHeight, extent - start);
    bands.push_back(landscape ? BandRect{start, 0, size, height} : BandRect{0, start, width, size});
  }
  return bands;
}

BandQueue::BandQueue(int depth) : slots_(static_cast<std::size_t>(std::max(depth, 1))) {
  for (std::size_t i = slots_.size(); i-- > 0;) free_.push_back(i);
}

BandQueue::~BandQueue() {
  Stop();
  Wait();
}

void BandQueue::Wait() {
  if (thread_.joinable()) thread_.join();
}

void BandQueue::Run(std::function<void()> input) {
  if (thread_.joinable()) return;
  thread_ = std::thread([this, input = std::move(input)] {
    // Nothing thrown on the input side may end the program: it stops the page with its reason.
    try {
      input();
    } catch (const std::exception& e) {
      Fail(e.what());
    } catch (...) {
      Fail("the input side failed");
    }
    Close();
  });
}

bool BandQueue::Put(const BandRect& band, int bytesPerPixel, const Fill& fill) {
  std::size_t index = 0;
  {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return stopped_ || !free_.empty(); });
    if (stopped_) return false;
    index = free_.back();
    free_.pop_back();
  }
  // The slot belongs to this thread until it is queued. It holds exactly the band's bytes, so that a
  // read past the band is a read past its buffer (a short last band gets a buffer of its own size).
  Slot& slot = slots_[index];
  const std::size_t stride = static_cast<std::size_t>(BandRowStride(band.Width));
  const std::size_t rowBytes = static_cast<std::size_t>(band.Width) * static_cast<std::size_t>(bytesPerPixel);
  const std::size_t bytes = stride * static_cast<std::size_t>(band.Height);
  std::uint8_t* const pixels = slot.Pixels.Hold(bytes);
  slot.Band = band;
  if (rowBytes < stride)
    for (std::size_t row = 0; row < static_cast<std::size_t>(band.Height); ++row)
      std::memset(pixels + stride * row + rowBytes, 0xFF, stride - rowBytes);
  std::string why;
  const bool filled = fill(pixels, stride, &why);

  std::lock_guard lock(mutex_);
  if (filled) {
    ready_.push_back(index);
  } else {
    free_.push_back(index);
    if (!failed_) failure_ = why.empty() ? "the input side failed" : why;
    failed_ = true;
  }
  changed_.notify_all();
  return filled && !stopped_;
}

void BandQueue::Fail(const std::string& reason) {
  std::lock_guard lock(mutex_);
  if (!failed_) failure_ = reason;
  failed_ = true;
  changed_.notify_all();
}

void BandQueue::Close() {
  std::lock_guard lock(mutex_);
  closed_ = true;
  changed_.notify_all();
}

void BandQueue::Stop() {
  std::lock_guard lock(mutex_);
  stopped_ = true;
  changed_.notify_all();
}

const std::uint8_t* BandQueue::Lend(const BandRect& band) {
  GiveBack();
  std::size_t index = 0;
  {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return !ready_.empty() || failed_ || closed_; });
    if (ready_.empty()) {
      error_ = failed_ ? failure_ : "the input ended before the page did";
      return nullptr;
    }
    index = ready_.front();
    ready_.pop_front();
  }
  // The slot belongs to this thread until it is given back.
  if (slots_[index].Band == band) {
    lent_ = index;
    return slots_[index].Pixels.Data();
  }
  std::lock_guard lock(mutex_);
  free_.push_back(index);
  error_ = "the input side rendered the bands out of order";
  stopped_ = true;
  changed_.notify_all();
  return nullptr;
}

void BandQueue::GiveBack() {
  if (!lent_) return;
  std::lock_guard lock(mutex_);
  free_.push_back(*lent_);
  lent_.reset();
  changed_.notify_all();
}

}  // namespace inkweave::host
