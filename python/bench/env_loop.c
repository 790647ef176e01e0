/* The floor for the Python module's array evaluation: the same envelope evaluated at the same
 * times by a plain C loop. Prints the median time per evaluation over the repetitions, in
 * nanoseconds. Usage: vexor_python_env_loop [count] [repetitions] */
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include <vexor/vexor.h>

static double now(void) {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (double)ts.tv_sec + (double)ts.tv_nsec * 1e-9;
}

static int compare(const void *a, const void *b) {
    const double x = *(const double *)a, y = *(const double *)b;
    return (x > y) - (x < y);
}

int main(int argc, char **argv) {
    const long count = argc > 1 ? atol(argv[1]) : 1000000;
    const int repetitions = argc > 2 ? atoi(argv[2]) : 5;
    if (count <= 0 || repetitions <= 0 || repetitions > 1000) return 2;
    double *times = malloc((size_t)count * sizeof *times);
    double *values = malloc((size_t)count * sizeof *values);
    double *seconds = malloc((size_t)repetitions * sizeof *seconds);
    Envelope *env = EnvCreate(NULL);
    if (times == NULL || values == NULL || seconds == NULL || env == NULL) return 1;
    /* The keys and times the Python side uses: a repeating bounce sampled over ten seconds. */
    EnvAddKey(env, 0.0, 0.0);
    EnvAddKey(env, 0.25, 2.0);
    EnvAddKey(env, 0.5, 0.0);
    EnvSetPostBehavior(env, ENV_BEHAVIOR_REPEAT);
    for (long i = 0; i < count; ++i) times[i] = 10.0 * (double)i / (double)(count - 1);
    double sink = 0.0;
    /* One untimed pass first, as the Python side is measured warm: the envelope's lookup index
     * built and the output pages touched. */
    for (long i = 0; i < count; ++i) values[i] = EnvEvaluate(env, times[i]);
    for (int r = 0; r < repetitions; ++r) {
        const double start = now();
        for (long i = 0; i < count; ++i) values[i] = EnvEvaluate(env, times[i]);
        seconds[r] = now() - start;
        sink += values[count / 2];
    }
    qsort(seconds, (size_t)repetitions, sizeof *seconds, compare);
    printf("%.3f %g\n", seconds[repetitions / 2] * 1e9 / (double)count, sink);
    EnvDestroyNoUndo(env);
    free(times);
    free(values);
    free(seconds);
    return 0;
}
