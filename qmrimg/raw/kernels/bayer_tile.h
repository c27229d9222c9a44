// Bayer development on tiles of a few whole rows: the plain form, which the row kernels must equal.
#pragma once

#include "qmrimg/raw/kernels/bayer_sites.h"

namespace qmr {

// Planes of a tile, each of `rows` rows of `width` floats.
enum TilePlane { kTileMosaic, kTileSecond, kTileGreen, kTileFirst, kTileGainedLuminance, kTileLuminance };

struct TileShape {
  int width;
  int rows;
  BayerLayout layout;
};

// Colours from the mosaic plane; the first row of the tile is an even row of the mosaic.
void MakeTileColours(float* tile, const TileShape& shape);
// Luminance into the named plane; `buffer` has three planes.
void MakeTileLuminance(float* tile, float* buffer, const TileShape& shape, TilePlane target);
// Base luminance plus the 3 by 3 mean of colour less reference luminance, at one place.
float SynthesizeTileSite(const float* tile, const TileShape& shape, TilePlane base, TilePlane reference,
                         TilePlane colour, int row, int column);

}  // namespace qmr
