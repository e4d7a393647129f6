# typed: strict
# frozen_string_literal: true

require "abstract_command"
require "cask/cask_loader"
require "formula"
require "json"
require "tap"

module Homebrew
  module Cmd
    # Lists what the installed taps bring beyond Homebrew's own catalogues, in the shape of `brew info --json=v2`, so
    # that Corvel X can read the formulae and casks of third-party taps the way it reads installed ones.
    class CorvelTapContentInfo < AbstractCommand
      cmd_args do
        description <<~EOS
          Print the JSON of every formula and cask of the installed taps other than `homebrew/core` (formulae)
          and `homebrew/cask` (casks), as `brew info --json=v2` prints it: an object with the key `formulae`
          and/or `casks`, each an array sorted by full name. A record that cannot be loaded is left out
          (and reported with `--verbose`), so that one broken tap does not hide the others.
        EOS
        switch "--formula", "--formulae",
               description: "Only print formulae."
        switch "--cask", "--casks",
               description: "Only print casks."
        flag   "--json",
               description: "Print the JSON of version <version>. Only `v2` exists, and it is the default."
        switch "--variations",
               description: "Include the variations hash in each record, as `brew info --variations` does."

        conflicts "--formula", "--cask"
        # Blank named arguments are accepted and ignored (Corvel X passes a lone " " with `--casks`); `run`
        # refuses any other.
      end

      sig { override.void }
      def run
        unless args.named.all? { |argument| argument.strip.empty? }
          raise UsageError, "`corvel-tap-content-info` does not take formula or cask names."
        end

        json = args.json
        raise UsageError, "invalid JSON version: #{json}" if json.is_a?(String) && json != "v2"

        content = {}
        content["formulae"] = formulae.map { |formula| formula_hash(formula) } unless args.cask?
        content["casks"] = casks.map { |cask| cask_hash(cask) } unless args.formula?
        puts JSON.pretty_generate(content)
      end

      private

      sig { returns(T::Array[Formula]) }
      def formulae
        Tap.installed.reject(&:core_tap?).flat_map do |tap|
          tap.formula_names.filter_map do |name|
            Formulary.factory(name)
          rescue StandardError => e
            skipped(name, e)
          end
        end.sort_by(&:full_name)
      end

      sig { returns(T::Array[Cask::Cask]) }
      def casks
        Tap.installed.reject(&:core_cask_tap?).flat_map do |tap|
          tap.cask_tokens.filter_map do |token|
            Cask::CaskLoader.load(token)
          rescue StandardError => e
            skipped(token, e)
          end
        end.sort_by(&:full_name)
      end

      sig { params(formula: Formula).returns(T::Hash[String, T.untyped]) }
      def formula_hash(formula)
        args.variations? ? formula.to_hash_with_variations : formula.to_hash
      end

      sig { params(cask: Cask::Cask).returns(T::Hash[String, T.untyped]) }
      def cask_hash(cask)
        args.variations? ? cask.to_hash_with_variations : cask.to_h
      end

      # Warnings only when asked for: callers often read standard output and standard error as one stream, and a
      # stray line there would spoil the JSON.
      sig { params(name: String, error: StandardError).returns(NilClass) }
      def skipped(name, error)
        opoo "Skipping #{name}: #{error.message}" if args.verbose?
        nil
      end
    end
  end
end
