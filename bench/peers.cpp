#include "peers.h"

#if RAST_HAS_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif
#if RAST_HAS_LIBYUV
#include <libyuv.h>
#endif
#if RAST_HAS_PIXMAN
#include <pixman.h>
#endif

#include <rast_chain.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace rast::bench {

namespace {

using Work = std::function<void()>;

/// The chain library with the work that the workload does part by part.
Work chainPage(Planes& p) {
  RastChain* chain = nullptr;
  if (rastChainOpen(ChainPage::kText, nullptr, &chain, nullptr) != RAST_CHAIN_OK) abort();
  const std::shared_ptr<RastChain> owned(chain, rastChainClose);
  return [&p, owned] {
    const ChainPage size(p);
    RastChainPage page = {};
    page.nWidth = static_cast<uint32_t>(size.width);
    page.nHeight = static_cast<uint32_t>(size.height);
    page.nComponents = 3;
    const auto linesAt = [&page](std::vector<uint8_t>& samples) {
      return RastChainLines{
          {samples.data()}, static_cast<ptrdiff_t>(3) * page.nWidth, page.nHeight, 0};
    };
    RastChainLines in = linesAt(p.in[0]);
    RastChainLines out = linesAt(p.out[0]);
    if (rastChainBegin(owned.get(), &page, nullptr, nullptr) != RAST_CHAIN_OK) abort();
    if (rastChainRun(owned.get(), &in, &out, nullptr) != RAST_CHAIN_DONE) abort();
  };
}

#if RAST_HAS_OPENCV

cv::Mat plane(std::vector<uint8_t>& samples, const Planes& p) {
  return {p.area.nHeight, p.area.nWidth, CV_8UC1, samples.data()};
}

/// Calls `each` with every plane in and out.
Work planeByPlane(Planes& p, int count, const std::function<void(cv::Mat in, cv::Mat out)>& each) {
  return [&p, count, each] {
    for (int k = 0; k < count; ++k) each(plane(p.in[k], p), plane(p.out[k], p));
  };
}

Work lut(Planes& p, int count) {
  const cv::Mat table(1, 256, CV_8UC1, p.curve);
  return planeByPlane(p, count,
                      [table](const cv::Mat& in, cv::Mat out) { cv::LUT(in, table, out); });
}

/// The planes as one interleaved picture, and one more of the kind.
std::array<cv::Mat, 2> interleaved(Planes& p) {
  cv::Mat in;
  cv::merge(std::array{plane(p.in[0], p), plane(p.in[1], p), plane(p.in[2], p)}, in);
  return {in, in.clone()};
}

Work transform(Planes& p) {
  const cv::Matx34f matrix(0.8F, 0.3F, -0.1F, 4, -0.1F, 1.1F, 0, 5, 0, -0.2F, 1.2F, 3);
  return [pictures = interleaved(p), matrix]() mutable {
    cv::transform(pictures[0], pictures[1], matrix);
  };
}

Work toHsv(Planes& p) {
  return [pictures = interleaved(p)]() mutable {
    cv::cvtColor(pictures[0], pictures[1], cv::COLOR_RGB2HSV);
  };
}

Work larger(Planes& p) {
  return [&p] {
    for (size_t k = 0; k < 3; ++k) {
      cv::Mat out = plane(p.out[k], p);
      cv::max(plane(p.in[k], p), plane(p.in[(k + 1) % 3], p), out);
    }
  };
}

Work turn(Planes& p, int count) {
  return planeByPlane(p, count, [](const cv::Mat& in, const cv::Mat& out) {
    cv::Mat turned(in.cols, in.rows, CV_8UC1, out.data);
    cv::rotate(in, turned, cv::ROTATE_90_CLOCKWISE);
  });
}

Work resize(Planes& p, int ratio) {
  return planeByPlane(p, 3, [ratio](const cv::Mat& in, const cv::Mat& out) {
    cv::Mat small(in.rows * ratio / 1000, in.cols * ratio / 1000, CV_8UC1, out.data);
    cv::resize(in, small, small.size(), 0, 0, cv::INTER_AREA);
  });
}

Work border(Planes& p, int left) {
  return planeByPlane(p, 3, [left](const cv::Mat& in, cv::Mat out) {
    const cv::Mat part = in(cv::Rect(0, 0, in.cols - left, in.rows));
    cv::copyMakeBorder(part, out, 0, 0, left, 0, cv::BORDER_CONSTANT, 255);
  });
}

/// One line of all pixels, and the planes that it is split into or joined from.
struct SplitPicture {
  SplitPicture(const Pixels& pixels, uint8_t* line, uint8_t* firstPlane)
      : whole(1, static_cast<int>(pixels.count), CV_8UC(static_cast<int>(pixels.components)),
              line) {
    for (size_t k = 0; k < pixels.components; ++k) {
      planes.emplace_back(1, whole.cols, CV_8UC1, firstPlane + k * pixels.count);
    }
  }

  cv::Mat whole;
  std::vector<cv::Mat> planes;
};

Work split(Planes& p, size_t components) {
  return
      [picture = SplitPicture(Pixels(p, components), p.in[0].data(), p.out[0].data())]() mutable {
        cv::split(picture.whole, picture.planes);
      };
}

Work join(Planes& p, size_t components) {
  return
      [picture = SplitPicture(Pixels(p, components), p.out[0].data(), p.in[0].data())]() mutable {
        cv::merge(picture.planes, picture.whole);
      };
}

#endif

#if RAST_HAS_LIBYUV

Work turnPlanes(Planes& p, size_t count) {
  return [&p, count] {
    for (size_t k = 0; k < count; ++k) {
      libyuv::RotatePlane90(p.in[k].data(), p.area.nWidth, p.out[k].data(), p.area.nHeight,
                            p.area.nWidth, p.area.nHeight);
    }
  };
}

Work box(Planes& p, int ratio) {
  return [&p, ratio] {
    const int width = p.area.nWidth * ratio / 1000;
    const int height = p.area.nHeight * ratio / 1000;
    for (size_t k = 0; k < 3; ++k) {
      libyuv::ScalePlane(p.in[k].data(), p.area.nWidth, p.area.nWidth, p.area.nHeight,
                         p.out[k].data(), width, width, height, libyuv::kFilterBox);
    }
  };
}

#endif

#if RAST_HAS_PIXMAN

/// A page with a stamp of a third each way over it, on pixels of four bytes: pixman has fast paths
/// for no smaller ones.
Work stamp(Planes& p) {
  const int width = p.area.nWidth / 3;
  const int height = p.area.nHeight;
  struct Unref {
    void operator()(pixman_image_t* image) const { pixman_image_unref(image); }
  };
  const auto picture = [&p](pixman_format_code_t format, int w, int h) {
    std::shared_ptr<pixman_image_t> image(pixman_image_create_bits(format, w, h, nullptr, 0),
                                          Unref());
    auto* const to = reinterpret_cast<uint8_t*>(pixman_image_get_data(image.get()));
    const size_t size =
        static_cast<size_t>(pixman_image_get_stride(image.get())) * static_cast<size_t>(h);
    for (size_t i = 0; i < size; ++i) to[i] = p.in[0][i % p.bytes()];
    return image;
  };
  const auto page = picture(PIXMAN_x8r8g8b8, width, height);
  const auto out = picture(PIXMAN_x8r8g8b8, width, height);
  const int stampWidth = width / 3;
  const int stampHeight = (height + 2) / 3;
  const auto over = picture(PIXMAN_a8r8g8b8, stampWidth, stampHeight);
  return [=] {
    pixman_image_composite32(PIXMAN_OP_SRC, page.get(), nullptr, out.get(), 0, 0, 0, 0, 0, 0, width,
                             height);
    pixman_image_composite32(PIXMAN_OP_OVER, over.get(), nullptr, out.get(), 0, 0, 0, 0,
                             (width - stampWidth) / 2, (height - stampHeight) / 2, stampWidth,
                             stampHeight);
  };
}

#endif

}  // namespace

const std::vector<Peer>& peers() {
#if RAST_HAS_OPENCV
  cv::setNumThreads(1);
#endif
  static const std::vector<Peer> all = {
    {"engine", "chain", chainPage},
#if RAST_HAS_OPENCV
    {"opencv", "expgamma-table", [](Planes& p) { return lut(p, 1); }},
    {"opencv", "colgamma", [](Planes& p) { return lut(p, 3); }},
    {"opencv", "colgamma-mono", [](Planes& p) { return lut(p, 1); }},
    {"opencv", "satadjust", toHsv},
    {"opencv", "hueadjust", transform},
    {"opencv", "hueadjust-buffer", transform},
    {"opencv", "colbalance-buffer", toHsv},
    {"opencv", "overlay-maximum", larger},
    {"opencv", "rotate-one-plane", [](Planes& p) { return turn(p, 1); }},
    {"opencv", "rotate-three-planes", [](Planes& p) { return turn(p, 3); }},
    {"opencv", "zoom-500", [](Planes& p) { return resize(p, 500); }},
    {"opencv", "zoom-333", [](Planes& p) { return resize(p, 333); }},
    {"opencv", "zoom-700", [](Planes& p) { return resize(p, 700); }},
    {"opencv", "shift", [](Planes& p) { return border(p, p.area.nWidth / 124); }},
    {"opencv", "shift-few", [](Planes& p) { return border(p, 5); }},
    {"opencv", "split-3", [](Planes& p) { return split(p, 3); }},
    {"opencv", "split-4", [](Planes& p) { return split(p, 4); }},
    {"opencv", "join-3", [](Planes& p) { return join(p, 3); }},
    {"opencv", "join-4", [](Planes& p) { return join(p, 4); }},
#endif
#if RAST_HAS_LIBYUV
    {"libyuv", "rotate-one-plane", [](Planes& p) { return turnPlanes(p, 1); }},
    {"libyuv", "rotate-three-planes", [](Planes& p) { return turnPlanes(p, 3); }},
    {"libyuv", "zoom-500", [](Planes& p) { return box(p, 500); }},
    {"libyuv", "zoom-333", [](Planes& p) { return box(p, 333); }},
    {"libyuv", "zoom-700", [](Planes& p) { return box(p, 700); }},
#endif
#if RAST_HAS_PIXMAN
    {"pixman", "overlayrgb", stamp},
#endif
  };
  return all;
}

}  // namespace rast::bench
