/* generate_model IN.safetensors OUT.cpp [--pass-through]
 *
 * Turns the parameter file into one source file of aligned constant tables. The file: eight bytes with the
 * length of a JSON header, the header ({"table": {"dtype": "F32", "shape": [count], "data_offsets": [from,
 * to]}, ...}), the values. Every table must be there with its exact size, finite, and nothing else.
 *
 * --pass-through: the same shapes, but decoder weights of zero and a mask bias of (8/9, 0), which cancels the
 * gain 1.125 of the overlapping windows: the engine then returns its input, delayed. For tests. */
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

struct Table {
    std::string name;
    size_t count;
};

std::vector<Table> tables() {
    std::vector<Table> all = {
        {"ln0", 1056},   {"fconv2d0", 640},  {"fconv2d0_bias", 32}, {"fbn0", 64},
        {"fprelu0", 32}, {"fconv2d1", 9216}, {"fconv2d1_bias", 48}, {"fbn1", 96},
        {"fprelu1", 48}, {"fconv2d2", 9216}, {"fconv2d2_bias", 64}, {"fbn2", 128},
        {"fprelu2", 64}, {"dconv2d0", 9216}, {"dconv2d0_bias", 48}, {"dbn0", 96},
        {"dprelu0", 48}, {"dconv2d1", 9216}, {"dconv2d1_bias", 32}, {"dbn1", 64},
        {"dprelu1", 32}, {"dconv2d2", 640},  {"dconv2d2_bias", 2},
    };
    for (const char* stage : {"0", "1", "2", "3"}) {
        for (const auto& [name, count] : {Table{"grui", 12288},
                                          {"gruh", 12288},
                                          {"grub", 384},
                                          {"dense", 4096},
                                          {"dense_bias", 64},
                                          {"gbn", 3968}}) {
            all.push_back({name + stage, count});
        }
    }
    return all;
}

using Values = std::map<std::string, std::vector<float>>;

Values read_tables(const std::vector<char>& file) {
    uint64_t length = 0;
    if (file.size() < sizeof length) throw std::runtime_error("no header");
    std::memcpy(&length, file.data(), sizeof length);
    if (length > file.size() - sizeof length) throw std::runtime_error("header longer than the file");
    const char* header_end = file.data() + sizeof length + length;
    const auto header = nlohmann::json::parse(file.data() + sizeof length, header_end);
    const size_t body = file.size() - sizeof length - length;

    Values values;
    for (const Table& table : tables()) {
        const auto& entry = header.at(table.name);
        const size_t from = entry.at("data_offsets").at(0), to = entry.at("data_offsets").at(1);
        if (entry.at("dtype") != "F32" || from > to || to > body ||
            to - from != table.count * sizeof(float)) {
            throw std::runtime_error(table.name + ": not " + std::to_string(table.count) + " 32-bit floats");
        }
        std::vector<float>& v = values[table.name];
        v.resize(table.count);
        std::memcpy(v.data(), header_end + from, to - from);
        for (const float x : v) {
            if (!std::isfinite(x)) throw std::runtime_error(table.name + ": value not finite");
        }
    }
    for (const auto& [name, entry] : header.items()) {
        if (name != "__metadata__" && values.count(name) == 0)
            throw std::runtime_error(name + ": no such table");
    }
    return values;
}

void pass_through(Values& values) {
    for (const char* name : {"dconv2d0", "dconv2d1", "dconv2d2"}) {
        values[name].assign(values[name].size(), 0.0f);
    }
    values["dconv2d2_bias"] = {8.0f / 9.0f, 0.0f};
}

std::string hash_of(const std::vector<char>& file) {
    uint64_t hash = 0xcbf29ce484222325;
    for (const char byte : file) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
    return text;
}

void write_source(std::ostream& out, const Values& values, const std::string& id) {
    out << "#include \"vq_ns_model.h\"\n\nconst char* vqns_model_id(void) { return \"" << id << "\"; }\n";
    for (const auto& [name, v] : values) {
        out << "\nalignas(256) const float " << name << "[" << v.size() << "] = {";
        for (size_t i = 0; i < v.size(); ++i) {
            char text[32];
            std::snprintf(text, sizeof text, "%s%af,", i % 8 == 0 ? "\n" : "", static_cast<double>(v[i]));
            out << text;
        }
        out << "\n};\n";
    }
}

void run(const std::string& in, const std::string& out, bool is_pass_through) {
    std::ifstream file(in, std::ios::binary);
    if (!file) throw std::runtime_error("cannot be read");
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    Values values = read_tables(bytes);
    if (is_pass_through) pass_through(values);
    std::ofstream source(out);
    write_source(source, values, is_pass_through ? "pass-through" : hash_of(bytes));
    source.flush();
    if (!source) throw std::runtime_error(out + " cannot be written");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3 || argc > 4 || (argc == 4 && std::strcmp(argv[3], "--pass-through") != 0)) {
        std::cerr << "usage: generate_model IN.safetensors OUT.cpp [--pass-through]\n";
        return 2;
    }
    try {
        run(argv[1], argv[2], argc == 4);
    } catch (const std::exception& e) {
        std::cerr << "generate_model: " << argv[1] << ": " << e.what() << "\n";
        return 1;
    }
    return 0;
}
