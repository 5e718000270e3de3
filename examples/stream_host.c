/* stream_host - a host in C: raw 16-bit mono PCM at 16 kHz from standard input to standard output, 10 ms at a
 * time.
 *
 *     cc stream_host.c $(pkg-config --cflags --libs vqns) -o stream_host
 *     sox call.wav -t raw -r 16000 -c 1 -e signed -b 16 - | ./stream_host | aplay -r 16000 -f S16_LE
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vqns/vq_ns.h>

enum { RATE = 16000, BLOCK = RATE / 100 };

int main(void) {
    /* One instance a stream, in memory of ours, which stays where it is. */
    vq_ns_data* ns = aligned_alloc(64, (vq_ns_data_size() + 63) / 64 * 64);
    if (ns == NULL || vq_ns_init(ns, RATE, RATE) != 0) {
        fprintf(stderr, "stream_host: no noise suppressor\n");
        free(ns);
        return 1;
    }
    fprintf(stderr, "vqns %s, delay %.1f ms\n", vqns_version(), 1000.0 * vq_ns_delay(ns) / RATE);

    int16_t in[BLOCK], out[BLOCK];
    int status = 0;
    while (fread(in, sizeof *in, BLOCK, stdin) == BLOCK) {
        /* 0: the delay line is still filling, and we play silence. */
        const int32_t written = vq_ns_process(ns, in, out, BLOCK);
        if (written == 0) memset(out, 0, sizeof out);
        if (written < 0 || fwrite(out, sizeof *out, BLOCK, stdout) != BLOCK || fflush(stdout) != 0) {
            status = 1;
            break;
        }
    }

    rk_dsp_dgc_kwenh_deinit(&ns->gain_control); /* what vq_ns_init had allocated */
    vq_ns_deinit(ns);
    free(ns);
    return status;
}
