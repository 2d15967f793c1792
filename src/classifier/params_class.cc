// The classifier's model: a bias and the weights of the 97 entries of the
// difference vector, as trained. The zero weights are entries of the model
// like any other and stay in place, so that entry k + 1 always weighs
// difference entry k.
#include "ql_is/ql_is.h"

extern "C" const double paramsClass[98] = {
    // Bias. Negative zero, as trained: -double(s) - (-0.0) turns a zero
    // score into +0.0.
    -0.0,

    // Block mean gradients, difference entry 8 j + i: two lines per block
    // column j, block rows i = 0..3 then 4..7.
    26.278225, 18.346741, -6.383038, 10.003153,    // j = 0, i = 0..3
    8.559892, -15.904893, 18.312662, 26.315723,    //        i = 4..7
    39.749901, 1.429456, 38.779049, 14.800981,     // j = 1, i = 0..3
    -12.147962, 34.892693, -22.394381, 32.633457,  //        i = 4..7
    9.541008, -3.415171, 16.025076, 63.808235,     // j = 2, i = 0..3
    23.773214, 26.777328, 13.081298, 37.020134,    //        i = 4..7
    -1.503937, 49.009495, 28.123388, 60.806835,    // j = 3, i = 0..3
    131.700424, 43.903893, 56.639236, -43.514626,  //        i = 4..7
    26.239712, 5.681828, 74.246063, 77.341225,     // j = 4, i = 0..3
    114.166145, 38.541359, -8.387386, 43.860161,   //        i = 4..7
    34.539471, 27.524132, 104.857719, 73.577827,   // j = 5, i = 0..3
    47.756893, 33.45834, 76.781448, -71.724548,    //        i = 4..7
    3.954224, 86.694962, 60.79604, 29.717218,      // j = 6, i = 0..3
    61.181129, 39.193539, 12.154745, 45.780987,    //        i = 4..7
    -28.576229, 66.65802, -6.660271, 81.490997,    // j = 7, i = 0..3
    85.310547, 59.247993, 87.026535, -157.804367,  //        i = 4..7

    // Gradient histogram bins 0..31, difference entries 64..95.
    -10.304722, 135.493393, 63.017574, 36.734097,  // bins 0..3
    0.0, 147.930695, 0.0, 0.0,                     // bins 4..7
    204.775406, 0.0, 0.0, 0.0,                     // bins 8..11
    0.0, 0.0, 0.0, 0.0,                            // bins 12..15
    0.0, 0.0, 0.0, 0.0,                            // bins 16..19
    0.0, 0.0, 0.0, 0.0,                            // bins 20..23
    0.0, 0.0, 0.0, 0.0,                            // bins 24..27
    0.0, 0.0, 0.0, 0.0,                            // bins 28..31

    // Share of gradients of 32 and above, difference entry 96.
    19.273046,
};
