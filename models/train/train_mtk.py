#!/usr/bin/python3
"""Trains the MediaTek denoisers (YUV mode 9, RAW mode 10) and exports them to ONNX.

Both back-ends hand the runtime the caller's frame as it is, so the networks see what the reference
runtime makes of it (see the manifests):

  yuv  8-bit NV21, 2x2 luma block plus the block's V,U pair as 6 channels, bytes / 255
  raw  10-bit RGGB Bayer in 16-bit words, black level 64, white level 1023, each 2x2 block as 4
       channels (R, G, G, B), (value - 64) / 959, linear

and a second input, the strength (yuv: the byte / 255; raw: the signed byte + 128, / 255) as planes of the
frame's shape, which weights the network's correction: out = x + s (net(x) - x). The networks are trained
blind at full strength; the weight is added at export, so strength 0 passes the frame through.

Noise: the Poisson-Gaussian sensor model of train.py (ISO 200 to 25600), on crops enlarged as there.
For yuv it is added in linear light before gamma, BT.601 YUV 4:2:0 and 8-bit quantisation; for raw the
photos are taken back to linear light, given inverse white-balance gains, mosaicked to RGGB, made noisy
and quantised to 10 bits.

    /usr/bin/python3 models/train/train_mtk.py yuv
    /usr/bin/python3 models/train/train_mtk.py raw
"""
import argparse
import os
import time

import torch
import torch.nn as nn
import torch.nn.functional as F

from train import (FULL_WELL, GAMMA, READ_NOISE, TRAIN_FILES, VALIDATION_FILES, Denoiser, Luma,
                   add_noise, batch, load_photo, pack, psnr, to_yuv420, validation_rows)

BLACK, WHITE = 64.0, 1023.0


def yuv_pair(clean, iso, gen, limited=None):
    """NV21 as the network sees it: noisy 8-bit input and clean target, 6 channels (luma block, V, U)."""
    if limited is None:
        limited = torch.rand(clean.shape[0], generator=gen) < 0.5
    swap = torch.ones(clean.shape[0], dtype=torch.bool)
    target = pack(*to_yuv420(clean, limited), swap)
    noisy = pack(*to_yuv420(add_noise(clean, iso, gen), limited), swap)
    return torch.floor(noisy.clamp(0, 1) * 255 + 0.5) / 255, target


def raw_pair(clean, iso, gen, balance=None):
    """RGGB in linear light as the network sees it: noisy 10-bit input and clean target, 4 channels."""
    n = clean.shape[0]
    lin = clean.clamp(0, 1) ** GAMMA
    if balance is None:  # red and blue gains the camera's white balance would undo
        balance = torch.stack([1.6 + 0.8 * torch.rand(n, generator=gen), 1.4 + 0.6 * torch.rand(n, generator=gen)], 1)
    lin = torch.cat([lin[:, 0:1] / balance[:, 0].view(-1, 1, 1, 1), lin[:, 1:2],
                     lin[:, 2:3] / balance[:, 1].view(-1, 1, 1, 1)], dim=1)
    target = torch.cat([lin[:, 0:1, 0::2, 0::2], lin[:, 1:2, 0::2, 1::2], lin[:, 1:2, 1::2, 0::2],
                        lin[:, 2:3, 1::2, 1::2]], dim=1)
    # The sensor model of train.py, on the mosaic itself rather than on full RGB.
    gain = (iso / 100.0).view(-1, 1, 1, 1)
    electrons = target * FULL_WELL / gain
    noisy = (torch.poisson(electrons, generator=gen) + READ_NOISE * torch.randn(electrons.shape, generator=gen))
    noisy = noisy * gain / FULL_WELL
    words = torch.floor(noisy * (WHITE - BLACK) + BLACK + 0.5).clamp(0, WHITE)
    return (words - BLACK) / (WHITE - BLACK), target


class Gated(nn.Module):
    """The exported model: the correction weighted by the strength, which the runtime hands over as
    planes of the frame tensor's shape (OpenCV's importer cannot broadcast against a dynamic shape)."""

    def __init__(self, net):
        super().__init__()
        self.net = net

    def forward(self, frame, strength):
        return frame + (self.net(frame) - frame) * strength


class RawNet(nn.Module):
    def __init__(self, width, depth, dilations=(1,)):
        super().__init__()
        self.net = Luma(width, depth, dilations=dilations)

    def forward(self, x):
        return self.net(x)


def measure_mtk_yuv(model, clean, iso, gen):
    x, target = yuv_pair(clean, iso, gen, torch.tensor([False]))
    out = torch.floor(model(x).clamp(0, 1) * 255 + 0.5) / 255
    return [psnr(x[:, :4], target[:, :4]), psnr(out[:, :4], target[:, :4]),
            psnr(x[:, 4:], target[:, 4:]), psnr(out[:, 4:], target[:, 4:])]


def measure_mtk_raw(model, clean, iso, gen):
    x, target = raw_pair(clean, iso, gen, torch.tensor([[2.0, 1.7]]))
    out = model(x).clamp(-BLACK / (WHITE - BLACK), 1)
    return [psnr(x, target), psnr(out, target), 0, 0]


def validate(kind, model, photos):
    """Mean PSNR in dB over the held-out photos per ISO: noisy input and network output vs clean."""
    return validation_rows(model, photos, measure_mtk_yuv if kind == "yuv" else measure_mtk_raw, 1, 4)


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("kind", choices=["yuv", "raw"])
    ap.add_argument("--steps", type=int, default=4000)
    ap.add_argument("--batch", type=int, default=16)
    ap.add_argument("--patch", type=int, default=64, help="crop size in pixels (multiple of 4)")
    ap.add_argument("--width", type=int, default=12)
    ap.add_argument("--depth", type=int, default=2)
    ap.add_argument("--dilation", default="1,2", help="dilations of the lowest-scale convolutions, cycled")
    ap.add_argument("--max-scale", type=float, default=5.0, help="largest enlargement of a crop")
    ap.add_argument("--max-iso", type=float, default=25600.0, help="highest ISO of the training noise")
    ap.add_argument("--threads", type=int, default=1)
    ap.add_argument("--checkpoint", help="also save the trained weights here")
    ap.add_argument("--out", default=None, help="directory (default models/mode9 or models/mode10)")
    args = ap.parse_args()
    here = os.path.dirname(os.path.abspath(__file__))
    out_dir = args.out or os.path.join(here, "..", "mode9" if args.kind == "yuv" else "mode10")

    torch.set_num_threads(args.threads)
    torch.manual_seed(0)
    gen = torch.Generator().manual_seed(0)
    start = time.process_time()
    train = [load_photo(f) for f in TRAIN_FILES]
    held_out = [load_photo(f) for f in VALIDATION_FILES]

    dilations = tuple(int(d) for d in args.dilation.split(","))
    model = (Denoiser(args.width, args.depth, dilations=dilations) if args.kind == "yuv"
             else RawNet(args.width, args.depth, dilations))
    channels = 6 if args.kind == "yuv" else 4
    print(f"parameters: {sum(p.numel() for p in model.parameters())}")
    opt = torch.optim.Adam(model.parameters(), lr=2e-3)
    sched = torch.optim.lr_scheduler.CosineAnnealingLR(opt, args.steps, eta_min=1e-5)
    for step in range(1, args.steps + 1):
        clean, iso = batch(train, args.batch, args.patch, gen, args.max_scale, args.max_iso)
        x, target = (yuv_pair if args.kind == "yuv" else raw_pair)(clean, iso, gen)
        out = model(x)
        if args.kind == "yuv":
            loss = F.l1_loss(out[:, :4], target[:, :4]) + 0.5 * F.l1_loss(out[:, 4:], target[:, 4:])
        else:  # errors in the dark matter once the camera applies its gamma
            loss = F.l1_loss((out.clamp(min=0) + 1e-3) ** 0.5, (target + 1e-3) ** 0.5)
        opt.zero_grad()
        loss.backward()
        opt.step()
        sched.step()
        if step % 100 == 0 or step == args.steps:
            print(f"step {step}/{args.steps}  loss {loss.item():.5f}  cpu {time.process_time() - start:.0f}s",
                  flush=True)

    scale = "8-bit" if args.kind == "yuv" else "linear, white - black"
    print(f"validation (held out: {', '.join(VALIDATION_FILES)}), PSNR dB, {scale} scale")
    print("  ISO    noisy  denoised" + ("  chroma noisy  chroma denoised" if args.kind == "yuv" else ""))
    for iso, n, d, cn, cd in validate(args.kind, model, held_out):
        print(f"  {iso:<6} {n:6.2f} {d:9.2f}" + (f" {cn:13.2f} {cd:16.2f}" if args.kind == "yuv" else ""))

    os.makedirs(out_dir, exist_ok=True)
    if args.checkpoint:
        torch.save(model.state_dict(), args.checkpoint)
    gated = Gated(model).eval()
    name = "vainr_mtk_yuv.onnx" if args.kind == "yuv" else "vainr_mtk_raw.onnx"
    dims = {2: "height", 3: "width"}
    torch.onnx.export(gated, (torch.zeros(1, channels, 64, 96), torch.zeros(1, channels, 64, 96)),
                      os.path.join(out_dir, name), opset_version=11, input_names=["frame", "strength"],
                      output_names=["denoised"], dynamic_axes={"frame": dims, "strength": dims, "denoised": dims})
    print(f"exported {os.path.normpath(os.path.join(out_dir, name))}, cpu {time.process_time() - start:.0f}s")


if __name__ == "__main__":
    main()
