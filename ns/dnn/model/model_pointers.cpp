#include "vq_ns_model.h"

const float* const encoder_weights[15] = {
    fconv2d0, fconv2d0_bias, fbn0, fbn0 + 32, fprelu0,  //
    fconv2d1, fconv2d1_bias, fbn1, fbn1 + 48, fprelu1,  //
    fconv2d2, fconv2d2_bias, fbn2, fbn2 + 64, fprelu2,
};

const float* const sep_weights[28] = {
    grui0, gruh0, grub0, dense0, dense_bias0, gbn0, gbn0 + 1984,  //
    grui1, gruh1, grub1, dense1, dense_bias1, gbn1, gbn1 + 1984,  //
    grui2, gruh2, grub2, dense2, dense_bias2, gbn2, gbn2 + 1984,  //
    grui3, gruh3, grub3, dense3, dense_bias3, gbn3, gbn3 + 1984,
};

const float* const decoder_weights[15] = {
    dconv2d0, dconv2d0_bias, dbn0,    dbn0 + 48, dprelu0,  //
    dconv2d1, dconv2d1_bias, dbn1,    dbn1 + 32, dprelu1,  //
    dconv2d2, dconv2d2_bias, nullptr, nullptr,   nullptr,
};
