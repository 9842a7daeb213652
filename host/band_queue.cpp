#include "host/band_queue.h"

#include <algorithm>
#include <cstring>
#include <exception>

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
  // The slot belongs to this thread until it is queued.
  Slot& slot = slots_[index];
  const std::size_t rowBytes = static_cast<std::size_t>(band.Width) * static_cast<std::size_t>(bytesPerPixel);
  slot.Band = band;
  slot.BytesPerPixel = bytesPerPixel;
  slot.Pixels.resize(rowBytes * static_cast<std::size_t>(band.Height));
  std::string why;
  const bool filled = fill(slot.Pixels.data(), rowBytes, &why);

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

bool BandQueue::Take(const BandRect& band, std::uint8_t* dst, std::size_t stride) {
  std::size_t index = 0;
  {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return !ready_.empty() || failed_ || closed_; });
    if (ready_.empty()) {
      error_ = failed_ ? failure_ : "the input ended before the page did";
      return false;
    }
    index = ready_.front();
    ready_.pop_front();
  }
  // The slot belongs to this thread until it is freed.
  const Slot& slot = slots_[index];
  const bool same = slot.Band == band;
  if (same) {
    const std::size_t rowBytes = static_cast<std::size_t>(band.Width) * static_cast<std::size_t>(slot.BytesPerPixel);
    for (std::int32_t row = 0; row < band.Height; ++row)
      std::memcpy(dst + stride * static_cast<std::size_t>(row), slot.Pixels.data() + rowBytes * row, rowBytes);
  }
  std::lock_guard lock(mutex_);
  free_.push_back(index);
  if (!same) {
    error_ = "the input side rendered the bands out of order";
    stopped_ = true;
  }
  changed_.notify_all();
  return same;
}

}  // namespace inkweave::host
