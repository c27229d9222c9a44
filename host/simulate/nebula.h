#pragma once

#include <cstdint>
#include <vector>

namespace qmr::sim {

struct Rgb {
  float red = 0;
  float green = 0;
  float blue = 0;
};

// Gas and dust in front of the stars as a function of position. Positions are relative to the shorter side of the
// image, (0, 0) at its middle.
class NebulaShape {
 public:
  explicit NebulaShape(std::uint64_t seed);

  // Light of the gas, dimmed by the dust, of no particular unit.
  Rgb Light(double x, double y) const;
  // Part of the starlight that passes the dust, a colour each, 0..1.
  Rgb Passing(double x, double y) const;
  // Where the young cluster sits.
  double ClusterX() const { return cluster_[0]; }
  double ClusterY() const { return cluster_[1]; }

 private:
  struct Lobe {
    double x, y;
    double longAxis, shortAxis;
    double cosine, sine;
    double strength;
  };
  struct Place {
    double x, y;   // bent by the turbulence
    double depth;  // of the dust, optical
  };

  double Noise(double x, double y, std::uint32_t layer) const;
  double Turbulence(double x, double y, int octaves, std::uint32_t layer) const;
  double Ridges(double x, double y, int octaves, std::uint32_t layer) const;
  double Lobes(const std::vector<Lobe>& lobes, double x, double y) const;
  Place At(double x, double y) const;

  std::uint64_t key_;
  double gradients_[64][2];
  std::vector<Lobe> hydrogen_;
  std::vector<Lobe> oxygen_;
  std::vector<Lobe> reflection_;
  double cluster_[2];
  double lane_[2];  // direction across the dark lane
};

}  // namespace qmr::sim
