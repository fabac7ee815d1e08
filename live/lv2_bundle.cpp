// SPDX-License-Identifier: MIT
// Writes the description of a plug-in's bundle, so that ports, ranges and meanings are those of the one table of settings.
//
//   lv2_bundle speaker|microphone BINARY FOLDER      writes FOLDER/manifest.ttl, plugin.ttl and presets.ttl
#include "live/lv2_ports.h"

#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>

namespace quorel {
namespace {

const char* const prefixes = R"(# Made by the build.
@prefix atom: <http://lv2plug.in/ns/ext/atom#> .
@prefix bufsz: <http://lv2plug.in/ns/ext/buf-size#> .
@prefix doap: <http://usefulinc.com/ns/doap#> .
@prefix lv2: <http://lv2plug.in/ns/lv2core#> .
@prefix opts: <http://lv2plug.in/ns/ext/options#> .
@prefix patch: <http://lv2plug.in/ns/ext/patch#> .
@prefix pprops: <http://lv2plug.in/ns/ext/port-props#> .
@prefix pset: <http://lv2plug.in/ns/ext/presets#> .
@prefix rdf: <http://www.w3.org/1999/02/22-rdf-syntax-ns#> .
@prefix rdfs: <http://www.w3.org/2000/01/rdf-schema#> .
@prefix state: <http://lv2plug.in/ns/ext/state#> .
@prefix units: <http://lv2plug.in/ns/extensions/units#> .
@prefix urid: <http://lv2plug.in/ns/ext/urid#> .
@prefix work: <http://lv2plug.in/ns/ext/worker#> .
@prefix xsd: <http://www.w3.org/2001/XMLSchema#> .

)";

struct Preset {
    const char* name;
    const char* symbol;
    std::vector<std::pair<const char*, int>> values; // the others are 0
};

std::vector<Preset> presetsOf(bool microphone)
{
    if (microphone)
        return {{"Voice", "voice", {{"MicNR", 1}}},
                {"Voice, gated", "voice_gated", {{"MicNR", 1}, {"micEq", 2}, {"noiseGate", 60}}}};
    return {{"Surround", "surround", {{"Settings", 1}}},
            {"Surround in a room", "surround_room", {{"Settings", 1}, {"Reverb", 120}}},
            {"Stereo down-mix", "stereo", {}}};
}

// A text in a Turtle literal: the table's have neither quotes nor backslashes.
std::string literal(std::string text)
{
    for (char& letter : text)
        if (letter == '\n')
            letter = ' ';
    return '"' + text + '"';
}

class Ports {
public:
    void add(const char* types, const std::string& symbol, const std::string& name, const std::string& more = "")
    {
        text << (count == 0 ? "" : " ,\n") << "    [ a " << types << " ; lv2:index " << count << " ; lv2:symbol "
             << literal(symbol) << " ; lv2:name " << literal(name) << more << " ]";
        ++count;
    }

    std::uint32_t count = 0;
    std::ostringstream text;
};

// A setting is on or off, one of a few, or a number.
std::string valueOf(const SettingsField& field)
{
    const std::string name = field.name;
    const bool onOff = name == "Settings" || name == "MicNR" || name == "levelsEnabled";
    std::ostringstream text;
    text << " ;\n      lv2:default 0 ; lv2:minimum " << field.low << " ; lv2:maximum " << (onOff ? 1 : field.high)
         << " ; rdfs:comment " << literal(field.meaning) << " ; lv2:portProperty " << (onOff ? "lv2:toggled" : "lv2:integer");
    if (name == "micEq")
        text << " , lv2:enumeration ; lv2:scalePoint [ rdfs:label \"off\" ; rdf:value 0 ] , [ rdfs:label \"fuller\" ; rdf:value "
                "1 ] , "
                "[ rdfs:label \"low cut\" ; rdf:value 2 ]";
    if (name == "Reverb")
        text << " ; lv2:scalePoint [ rdfs:label \"off\" ; rdf:value 0 ] , [ rdfs:label \"0 dB\" ; rdf:value 170 ] ;\n"
                "      units:unit [ a units:Unit ; rdfs:label \"steps of 27/255 dB\" ; units:symbol \"27/255 dB\" ; "
                "units:render \"%f x 27/255 dB\" ]";
    if (name == "noiseGate")
        text << " ; lv2:scalePoint [ rdfs:label \"off\" ; rdf:value 0 ] , [ rdfs:label \"-24 dB\" ; rdf:value 128 ] ;\n"
                "      units:unit [ a units:Unit ; rdfs:label \"steps of 20/127 dB\" ; units:symbol \"20/127 dB\" ; "
                "units:render \"%f x 20/127 dB\" ]";
    if (name.starts_with("EQBand"))
        text << " ; lv2:scalePoint [ rdfs:label \"flat\" ; rdf:value 0 ] ;\n"
                "      units:unit [ a units:Unit ; rdfs:label \"steps of 6/127 dB\" ; units:symbol \"6/127 dB\" ; "
                "units:render \"%f x 6/127 dB\" ]";
    return text.str();
}

std::string describe(const PluginPorts& ports)
{
    const bool microphone = ports.kind.microphone;
    const std::vector<std::string> speakers{"FL", "FR", "FC", "LFE", "RL", "RR", "SL", "SR"};
    Ports list;
    for (std::uint32_t c = 0; c < ports.kind.channels; ++c)
        list.add("lv2:InputPort , lv2:AudioPort", microphone ? "in" : "in_" + speakers[c], microphone ? "In" : speakers[c]);
    for (std::uint32_t c = 0; c < ports.kind.outputs(); ++c)
        list.add("lv2:OutputPort , lv2:AudioPort",
                 microphone ? "out"
                 : c == 0   ? "out_L"
                            : "out_R",
                 microphone ? "Out"
                 : c == 0   ? "Left ear"
                            : "Right ear");
    list.add("lv2:OutputPort , lv2:ControlPort", "latency", "Latency",
             " ; lv2:designation lv2:latency ; lv2:portProperty lv2:reportsLatency , lv2:integer , lv2:connectionOptional ; "
             "lv2:minimum 0 ; lv2:maximum 255 ; units:unit units:frame");
    for (const SettingsField* field : ports.settings)
        list.add("lv2:InputPort , lv2:ControlPort", field->name, field->name, valueOf(*field));
    if (microphone)
        for (std::uint32_t band = 1; band <= levelCount; ++band)
            list.add("lv2:OutputPort , lv2:ControlPort", "level" + std::to_string(band), "Level " + std::to_string(band),
                     " ; lv2:portProperty lv2:connectionOptional ; lv2:minimum -120 ; lv2:maximum 0 ; units:unit units:db");
    else {
        const std::string about =
            " ;\n      atom:bufferType atom:Sequence ; atom:supports patch:Message ; lv2:designation lv2:control ; "
            "lv2:portProperty lv2:connectionOptional";
        list.add("lv2:InputPort , atom:AtomPort", "control", "Control", about);
        list.add("lv2:OutputPort , atom:AtomPort", "notify", "Notify", about);
    }
    if (list.count != ports.count())
        throw std::logic_error("the description lacks ports");

    std::ostringstream text;
    text << prefixes << '<' << ports.uri() << ">\n    a lv2:Plugin , " << (microphone ? "lv2:FilterPlugin" : "lv2:SpatialPlugin")
         << " ;\n    doap:name " << literal(microphone ? "QUOREL microphone" : "QUOREL headphones")
         << " ;\n    doap:license <https://spdx.org/licenses/MIT> ;\n"
            "    lv2:minorVersion 1 ; lv2:microVersion 0 ;\n"
            "    lv2:optionalFeature lv2:hardRTCapable , urid:map , opts:options"
         << (microphone ? "" : " , work:schedule , state:mapPath , state:freePath")
         << " ;\n    opts:supportedOption bufsz:minBlockLength , bufsz:maxBlockLength ;\n";
    if (!microphone)
        text << "    lv2:extensionData work:interface , state:interface ;\n    patch:writable <" << responsesUri << "> ;\n";
    text << "    lv2:port\n" << list.text.str() << " .\n";
    if (!microphone)
        text << "\n<" << responsesUri << ">\n    a lv2:Parameter ;\n    rdfs:label \"Responses\" ;\n"
             << "    rdfs:comment \"A file with the responses of a head: SOFA, or WAV with fourteen channels\" ;\n"
                "    rdfs:range atom:Path .\n";
    return text.str();
}

std::string presets(const PluginPorts& ports)
{
    std::ostringstream text;
    text << prefixes;
    for (const Preset& preset : presetsOf(ports.kind.microphone)) {
        text << '<' << ports.uri() << '#' << preset.symbol << ">\n    a pset:Preset ; lv2:appliesTo <" << ports.uri()
             << "> ; rdfs:label " << literal(preset.name) << " ;\n    lv2:port\n";
        const char* before = "";
        for (const SettingsField* field : ports.settings) {
            int value = 0;
            for (const auto& [name, set] : preset.values)
                if (settingsField(name) == field)
                    value = set;
            text << before << "    [ lv2:symbol " << literal(field->name) << " ; pset:value " << value << " ]";
            before = " ,\n";
        }
        text << " .\n\n";
    }
    return text.str();
}

std::string manifest(const PluginPorts& ports, const std::string& binary)
{
    std::ostringstream text;
    text << prefixes << '<' << ports.uri() << "> a lv2:Plugin ; lv2:binary <" << binary << "> ; rdfs:seeAlso <plugin.ttl> .\n";
    for (const Preset& preset : presetsOf(ports.kind.microphone))
        text << '<' << ports.uri() << '#' << preset.symbol << "> a pset:Preset ; lv2:appliesTo <" << ports.uri()
             << "> ; rdfs:seeAlso <presets.ttl> .\n";
    return text.str();
}

void write(const std::string& path, const std::string& text)
{
    std::ofstream file(path);
    file << text;
    file.close();
    if (!file)
        throw std::runtime_error("cannot write " + path);
}

} // namespace
} // namespace quorel

int main(int argc, char** argv)
{
    using namespace quorel;
    if (argc != 4)
        return 2;
    try {
        const PluginPorts ports(std::string(argv[1]) == "microphone");
        const std::string folder = argv[3];
        write(folder + "/manifest.ttl", manifest(ports, argv[2]));
        write(folder + "/plugin.ttl", describe(ports));
        write(folder + "/presets.ttl", presets(ports));
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "lv2_bundle: " << error.what() << '\n';
        return 2;
    }
}
