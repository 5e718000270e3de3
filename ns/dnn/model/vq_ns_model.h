/* vq_ns_model.h - the trained parameters of the network: constant tables compiled into the library, shared by
 * all instances, read-only, each on a 256-byte boundary.
 *
 * Letters: t time tap, k frequency tap, c input channel, o output channel or unit; b = o / 8 its block, u = o
 * % 8 its place in the block. Normalisation tables hold their scales first and their shifts behind them.
 *
 *   fconv2d0..2           b * (T * K * ch_in * 8) + t * (K * ch_in * 8) + (k * ch_in + c) * 8 + u
 *                         t = 0 is the frame before, the last t the current one
 *   dconv2d0..1           t * (K * ch_out * ch_in) + k * (ch_out * ch_in) + b * (ch_in * 8) + c * 8 + u
 *                         t = 0 feeds the current frame, t = 1 the next
 *   dconv2d2              t * (5 * 2 * 32) + k * (2 * 32) + o * 32 + c
 *   dense0..3             b * 512 + i * 8 + u, input i
 *   grui0..3, gruh0..3    b * 1536 + i * 24 + g * 8 + u, gate g: 0 update (z), 1 reset (r), 2 candidate (n)
 *   grub0..3              b * 48 + g * 16 + s * 8 + u, s: 0 with the input product, 1 with the recurrent one
 */
#ifndef VQ_NS_MODEL_H
#define VQ_NS_MODEL_H

#include "vqns_api.h"

/* Input normalisation over 2 x 257 interleaved parts, padded to 528. */
VQNS_DATA const float ln0[1056];

/* Encoder: convolutions 2 -> 32 (T 2, K 5), 32 -> 48 (T 2, K 3), 48 -> 64 (T 1, K 3) */
VQNS_DATA const float fconv2d0[640], fconv2d0_bias[32], fbn0[64], fprelu0[32];
VQNS_DATA const float fconv2d1[9216], fconv2d1_bias[48], fbn1[96], fprelu1[48];
VQNS_DATA const float fconv2d2[9216], fconv2d2_bias[64], fbn2[128], fprelu2[64];

/* Separator: four recurrent stages of 64 units over a map of 31 x 64 */
VQNS_DATA const float grui0[12288], gruh0[12288], grub0[384], dense0[4096], dense_bias0[64], gbn0[3968];
VQNS_DATA const float grui1[12288], gruh1[12288], grub1[384], dense1[4096], dense_bias1[64], gbn1[3968];
VQNS_DATA const float grui2[12288], gruh2[12288], grub2[384], dense2[4096], dense_bias2[64], gbn2[3968];
VQNS_DATA const float grui3[12288], gruh3[12288], grub3[384], dense3[4096], dense_bias3[64], gbn3[3968];

/* Decoder: transposed convolutions 64 -> 48 (T 1, K 3), 48 -> 32 (T 2, K 3), 32 -> 2 (T 2, K 5) */
VQNS_DATA const float dconv2d0[9216], dconv2d0_bias[48], dbn0[96], dprelu0[48];
VQNS_DATA const float dconv2d1[9216], dconv2d1_bias[32], dbn1[64], dprelu1[32];
VQNS_DATA const float dconv2d2[640], dconv2d2_bias[2];

/* Through these the layers reach the tables:
 * encoder_weights, five a layer: weights, bias, scales, shifts, PReLU slopes;
 * sep_weights, seven a stage: input weights, recurrent weights, biases, dense weights, dense bias, scales,
 * shifts; decoder_weights, as the encoder's; the last layer has weights and bias alone, slots 12 to 14 are
 * null. */
VQNS_DATA const float* const encoder_weights[15];
VQNS_DATA const float* const sep_weights[28];
VQNS_DATA const float* const decoder_weights[15];

/* Which model this is: a short hash (FNV-1a, hexadecimal) of the parameter file. Static storage. */
VQNS_API const char* vqns_model_id(void);

#endif
