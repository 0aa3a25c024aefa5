// bic — runs the library's main jobs from the command line.

#include "bic/core/image_core_error.hpp"
#include "bic/metadata/image_metadata.hpp"
#include "commands.hpp"
#include "image_files.hpp"

#include <cstdio>
#include <exception>

int main(int argc, char** argv) {
    CLI::App app{"bic — BrellinImageCore on the command line"};
    app.require_subcommand(1);
    bic::ImageMetadata::setSoftwareNameAndVersion("bic " BIC_VERSION);
    bic::tool::addImageFileOptions(app); // first, so that every command inherits fallthrough
    bic::tool::Run runs[] = {
        bic::tool::addColorCommand(app),    bic::tool::addEncodeCommand(app),
        bic::tool::addDecodeCommand(app),   bic::tool::addBlendCommand(app),
        bic::tool::addDitherCommand(app),   bic::tool::addHistogramCommand(app),
        bic::tool::addFillCommand(app),     bic::tool::addDistanceCommand(app),
        bic::tool::addOutlineCommand(app),  bic::tool::addGradientCommand(app),
        bic::tool::addMetadataCommand(app), bic::tool::addPsdCommand(app),
        bic::tool::addDemoCommand(app)};
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        std::fprintf(stderr, "bic: %s\n", e.what());
        return 2;
    }
    try {
        for (auto& run : runs)
            if (run) run();
    } catch (const bic::tool::CommandError& e) {
        std::fprintf(stderr, "bic: %s\n", e.what());
        return 1;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bic: %s\n", e.what());
        return 1;
    }
    return 0;
}
