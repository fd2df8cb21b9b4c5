#include "ElevationSource.h"

#include <cmath>
#include <sstream>

namespace qvscenery {

namespace {

class FlatSource : public ElevationSource {
 public:
  explicit FlatSource(double height) : height_(height) {}
  double height(double, double) const override { return height_; }
  std::string describe() const override {
    std::ostringstream text;
    text << "flat " << height_;
    return text.str();
  }

 private:
  double height_;
};

class PlaneSource : public ElevationSource {
 public:
  PlaneSource(double h0, double slopeDeg, double bearingDeg, LocalFrame frame)
      : h0_(h0), frame_(frame), slopeDeg_(slopeDeg), bearingDeg_(bearingDeg) {
    const double rise = std::tan(slopeDeg * kPi / 180.0);
    gradientNorth_ = rise * std::cos(bearingDeg * kPi / 180.0);
    gradientEast_ = rise * std::sin(bearingDeg * kPi / 180.0);
  }
  double height(double lat, double lon) const override {
    return h0_ + gradientNorth_ * frame_.north(lat) + gradientEast_ * frame_.east(lon);
  }
  std::string describe() const override {
    std::ostringstream text;
    text << "plane " << h0_ << " " << slopeDeg_ << " " << bearingDeg_;
    return text.str();
  }

 private:
  double h0_;
  LocalFrame frame_;
  double slopeDeg_, bearingDeg_;
  double gradientNorth_ = 0.0, gradientEast_ = 0.0;
};

class HillsSource : public ElevationSource {
 public:
  HillsSource(double base, double amplitude, double wavelength, LocalFrame frame)
      : base_(base), amplitude_(amplitude), wavelength_(wavelength), frame_(frame) {}
  double height(double lat, double lon) const override {
    const double k = 2.0 * kPi / wavelength_;
    return base_ +
           amplitude_ * 0.5 * (1.0 + std::sin(k * frame_.north(lat)) * std::sin(k * frame_.east(lon)));
  }
  std::string describe() const override {
    std::ostringstream text;
    text << "hills " << base_ << " " << amplitude_ << " " << wavelength_;
    return text.str();
  }

 private:
  double base_, amplitude_, wavelength_;
  LocalFrame frame_;
};

}  // namespace

double LocalFrame::north(double lat) const {
  return (lat - refLat) * kMetresPerDegree;
}
double LocalFrame::east(double lon) const {
  return (lon - refLon) * kMetresPerDegree * std::cos(refLat * kPi / 180.0);
}

std::unique_ptr<ElevationSource> makeFlat(double height) {
  return std::make_unique<FlatSource>(height);
}

std::unique_ptr<ElevationSource> makePlane(double h0, double slopeDeg, double bearingDeg, LocalFrame frame) {
  return std::make_unique<PlaneSource>(h0, slopeDeg, bearingDeg, frame);
}

std::unique_ptr<ElevationSource> makeHills(double base, double amplitude, double wavelengthM,
                                           LocalFrame frame) {
  return std::make_unique<HillsSource>(base, amplitude, wavelengthM, frame);
}

}  // namespace qvscenery
